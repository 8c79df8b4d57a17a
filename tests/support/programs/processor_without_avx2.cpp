// Linked into a program, this stands in for what the compiler's own library finds out about the processor, which
// functions that are built for several kinds of processor are chosen by: there is nothing but what every one has. So a
// program runs what is delivered, on its other path.

struct ProcessorModel {
    unsigned int vendor;
    unsigned int type;
    unsigned int subtype;
    unsigned int features;
};

extern "C" {

// The names are the compiler's.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern ProcessorModel __cpu_model;
int __cpu_indicator_init();

ProcessorModel __cpu_model{};

int __cpu_indicator_init()
{
    return 0;
}
// NOLINTEND(bugprone-reserved-identifier)
}
