#include "platform/opencv/model_file.h"

#include <QCryptographicHash>
#include <QFile>

namespace nimbrale::opencv {
namespace {

constexpr const char* modelName = "selfie_landscape.onnx";
constexpr const char* modelChecksum = "9b025981ade0c353d1e0b7288a595446b8260448de4eaa22535a6977fdbfd271";

} // namespace

std::filesystem::path modelFile(const std::filesystem::path& programFolder)
{
    const std::filesystem::path besideProgram = programFolder / modelName;
    std::error_code ignored;
    if (std::filesystem::exists(besideProgram, ignored))
        return besideProgram;
    return (programFolder / NIMBRALE_DATA_FROM_PROGRAM / modelName).lexically_normal();
}

Result<QByteArray> readModel(const std::filesystem::path& file)
{
    QFile opened(QString::fromStdString(file.string()));
    if (!opened.open(QIODevice::ReadOnly)) {
        return fail(ErrorCode::permanent, "The model that finds people cannot be read: " + file.string() + ": " +
                                              opened.errorString().toStdString());
    }
    // The model is less than half of that; a huge file that lies in its place is not read whole.
    constexpr qint64 longest = 1'000'000;
    QByteArray bytes = opened.read(longest);
    // Parsers of models were not written for damaged ones; nothing but the very file reaches them.
    if (QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex() != modelChecksum)
        return fail(ErrorCode::permanent, "The model that finds people is damaged: " + file.string());
    return bytes;
}

} // namespace nimbrale::opencv
