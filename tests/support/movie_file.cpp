#include "tests/support/movie_file.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtEndian>

#include <algorithm>
#include <cstring>

namespace nimbrale::test {

namespace {

struct Output {
    QByteArray data;
    QByteArray errors;
};

Output run(const QString& program, const QStringList& arguments)
{
    constexpr int patience = 60'000;
    QProcess process;
    process.start(program, arguments, QIODevice::ReadOnly);
    if (!process.waitForFinished(patience)) {
        process.kill();
        return {{}, "it did not end"};
    }
    return {process.readAllStandardOutput(), process.readAllStandardError()};
}

QString text(const QJsonObject& object, const char* key)
{
    return object.value(QLatin1String(key)).toString();
}

double seconds(const QJsonObject& object, const char* key)
{
    return text(object, key).toDouble();
}

MovieFile::Video videoTrack(const QJsonObject& track)
{
    MovieFile::Video video;
    video.codec = text(track, "codec_name").toStdString();
    video.profile = text(track, "profile").toStdString();
    video.size = {track["width"].toInt(), track["height"].toInt()};
    video.colors = QStringList{text(track, "color_space"), text(track, "color_transfer"),
                               text(track, "color_primaries"), text(track, "color_range")}
                       .join(' ')
                       .toStdString();
    video.start = seconds(track, "start_time");
    video.duration = seconds(track, "duration");
    return video;
}

MovieFile::Audio audioTrack(const QJsonObject& track)
{
    return {text(track, "codec_name").toStdString(), text(track, "sample_rate").toInt(), track["channels"].toInt(),
            seconds(track, "start_time"), seconds(track, "duration")};
}

std::vector<std::filesystem::path> filesIn(const std::filesystem::path& folder, bool areMovies)
{
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if ((entry.path().extension() == ".mov") == areMovies)
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

std::string MovieFile::missing()
{
    for (const char* program : {"ffprobe", "ffmpeg"}) {
        if (findProgram(program).empty())
            return std::string(program) + " is not installed";
    }
    return {};
}

MovieFile::MovieFile(std::filesystem::path path) : path_(std::move(path))
{
    const QString file = QString::fromStdString(path_.string());
    const QJsonObject facts =
        QJsonDocument::fromJson(
            run("ffprobe", {"-v", "error", "-of", "json", "-show_streams", "-show_packets", file}).data)
            .object();
    const QJsonArray streams = facts["streams"].toArray();
    for (const auto& value : streams) {
        const QJsonObject track = value.toObject();
        if (text(track, "codec_type") == "video")
            video_ = videoTrack(track);
        else if (text(track, "codec_type") == "audio")
            audio_ = audioTrack(track);
    }
    const QJsonArray packets = facts["packets"].toArray();
    for (const auto& value : packets) {
        const QJsonObject packet = value.toObject();
        if (video_ && text(packet, "codec_type") == "video")
            video_->pictures.push_back({seconds(packet, "pts_time"), text(packet, "flags").startsWith('K')});
    }
}

std::string MovieFile::problems() const
{
    // Times are kept as they are; rounded to a frame rate, some would fall together.
    return run("ffmpeg", {"-v", "error", "-i", QString::fromStdString(path_.string()), "-fps_mode", "passthrough",
                          "-enc_time_base", "1/90000", "-f", "null", "-"})
        .errors.toStdString();
}

std::string MovieFile::boxes() const
{
    QFile file(QString::fromStdString(path_.string()));
    std::string names;
    if (!file.open(QIODevice::ReadOnly))
        return names;
    constexpr int longHeader = 16;
    for (qint64 position = 0; position < file.size();) {
        file.seek(position);
        const QByteArray header = file.read(longHeader);
        if (header.size() < 8)
            break;
        qint64 size = qFromBigEndian<quint32>(header.constData());
        if (size == 1 && header.size() == longHeader)
            size = qFromBigEndian<qint64>(header.constData() + 8);
        if (size < 8)
            break;
        names += (names.empty() ? "" : " ") + header.mid(4, 4).toStdString();
        position += size;
    }
    return names;
}

QImage MovieFile::pictureAt(double time) const
{
    // The program begins with the first picture from the given time on, which is not the one shown at that time.
    constexpr double lessThanAPicture = 0.001;
    double begin = 0;
    for (const Picture& candidate : video_->pictures) {
        if (candidate.time <= time)
            begin = std::max(0.0, candidate.time - lessThanAPicture);
    }
    const QByteArray picture =
        run("ffmpeg", {"-v", "error", "-ss", QString::number(begin, 'f', 6), "-i",
                       QString::fromStdString(path_.string()), "-frames:v", "1", "-vf",
                       "scale=in_color_matrix=bt709:in_range=tv:out_range=pc:flags=accurate_rnd+full_chroma_int", "-f",
                       "image2pipe", "-c:v", "png", "-"})
            .data;
    return QImage::fromData(picture, "png").convertToFormat(QImage::Format_RGB32);
}

std::vector<int> MovieFile::brightnessAt(QPoint pixel) const
{
    // Colors are coarser than brightness: an area of two by two.
    const QString filter = QString("crop=2:2:%1:%2,format=gray").arg(pixel.x() / 2 * 2).arg(pixel.y() / 2 * 2);
    const QByteArray pixels =
        run("ffmpeg", {"-v", "error", "-i", QString::fromStdString(path_.string()), "-vf", filter, "-fps_mode",
                       "passthrough", "-enc_time_base", "1/90000", "-f", "rawvideo", "-"})
            .data;
    std::vector<int> brightness;
    for (qsizetype picture = 0; picture + 4 <= pixels.size(); picture += 4)
        brightness.push_back(static_cast<unsigned char>(pixels[picture]));
    return brightness;
}

std::vector<float> MovieFile::samples(int channel) const
{
    const QByteArray data = run("ffmpeg", {"-v", "error", "-i", QString::fromStdString(path_.string()), "-vn", "-af",
                                           QString("pan=mono|c0=c%1").arg(channel), "-ar", "48000", "-f", "f32le", "-"})
                                .data;
    std::vector<float> result(static_cast<std::size_t>(data.size()) / sizeof(float));
    std::memcpy(result.data(), data.constData(), result.size() * sizeof(float));
    return result;
}

std::vector<std::filesystem::path> moviesIn(const std::filesystem::path& folder)
{
    return filesIn(folder, true);
}

std::vector<std::filesystem::path> otherFilesIn(const std::filesystem::path& folder)
{
    return filesIn(folder, false);
}

} // namespace nimbrale::test
