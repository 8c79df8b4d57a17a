// Loops over pixels are built for processors with AVX2 and for all others (`NIMBRALE_VECTOR_CLONES`): both give the
// same to the last bit, in every size. Two programs run what is delivered, one of which takes any processor for one
// without.

#include "tests/support/photographs.h"
#include "tests/support/process.h"
#include "tests/support/requirements.h"

#include <QTemporaryDir>

#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace nimbrale::test {
namespace {

class VectorClonesTest : public testing::Test {
protected:
    void SetUp() override
    {
        const PixelBuffer photograph = requirePhotograph("messi5.jpg", width, height);
        std::ofstream stream(file(), std::ios::binary);
        stream.write(reinterpret_cast<const char*>(photograph.row(0)),
                     static_cast<std::streamsize>(photograph.stride()) * height);
        ASSERT_TRUE(stream.flush());
    }

    /// What the program prints, line by line.
    [[nodiscard]] std::vector<std::string> resultsOf(const std::string& program)
    {
        std::string error;
        const std::string output = folder_.filePath(QString::fromStdString(program)).toStdString();
        const auto process =
            Process::start((buildFolder() / program).string(), {std::to_string(width), std::to_string(height), file()},
                           {.environment = {}, .outputFile = output}, error);
        if (!process)
            failTest(error);
        EXPECT_EQ(process->waitForEnd(Milliseconds{60000}), 0) << program;
        std::vector<std::string> lines;
        std::ifstream stream(output);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }

private:
    static constexpr int width = 1280;
    static constexpr int height = 720;

    [[nodiscard]] std::string file() const { return folder_.filePath("photograph").toStdString(); }

    QTemporaryDir folder_;
};

TEST_F(VectorClonesTest, GiveTheSameToTheLastBitInEverySize)
{
    const std::vector<std::string> vectors = resultsOf("nimbrale_picture_loops");
    ASSERT_FALSE(vectors.empty());
    if (vectors.front() == "avx2 no")
        skipTest("this processor has no AVX2");
    const std::vector<std::string> portable = resultsOf("nimbrale_picture_loops_portable");
    ASSERT_GT(vectors.size(), 4000U);
    ASSERT_EQ(vectors.size(), portable.size());
    ASSERT_EQ(vectors.front(), "avx2 yes");
    ASSERT_EQ(portable.front(), "avx2 no");
    int different = 0;
    for (std::size_t i = 1; i < vectors.size(); ++i) {
        if (vectors[i] != portable[i] && different++ < 10)
            ADD_FAILURE() << vectors[i] << " with AVX2, " << portable[i] << " without";
    }
    EXPECT_EQ(different, 0) << "of " << vectors.size();
}

} // namespace
} // namespace nimbrale::test
