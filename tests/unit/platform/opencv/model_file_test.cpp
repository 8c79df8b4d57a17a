#include "platform/opencv/model_file.h"

#include <QCryptographicHash>
#include <QTemporaryDir>

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

namespace nimbrale::opencv {
namespace {

using testing::HasSubstr;

/// The folder of this program, where the build puts the model.
std::filesystem::path buildFolder()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

class ModelFileTest : public testing::Test {
protected:
    static void write(const std::filesystem::path& path, const QByteArray& bytes)
    {
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary).write(bytes.constData(), bytes.size());
    }

    QTemporaryDir temporary;
    std::filesystem::path folder = temporary.path().toStdString();
    std::filesystem::path file = folder / "model.onnx";
};

TEST_F(ModelFileTest, TheBuildHasTheModelBesideItsPrograms)
{
    const auto model = readModel(modelFile(buildFolder()));
    ASSERT_TRUE(model) << model.error().message;
    EXPECT_EQ(model->size(), 436891);
    EXPECT_EQ(QCryptographicHash::hash(*model, QCryptographicHash::Sha256).toHex(),
              "9b025981ade0c353d1e0b7288a595446b8260448de4eaa22535a6977fdbfd271");
}

TEST_F(ModelFileTest, AnInstallationHasItWhereDataBelongs)
{
    EXPECT_EQ(modelFile("/opt/nimbrale/bin"), "/opt/nimbrale/share/nimbrale/selfie_landscape.onnx");
}

TEST_F(ModelFileTest, AFileBesideTheProgramComesFirst)
{
    write(folder / "bin" / "selfie_landscape.onnx", "beside");
    write(folder / "share" / "nimbrale" / "selfie_landscape.onnx", "installed");
    EXPECT_EQ(modelFile(folder / "bin"), folder / "bin" / "selfie_landscape.onnx");
    std::filesystem::remove(folder / "bin" / "selfie_landscape.onnx");
    EXPECT_EQ(modelFile(folder / "bin"), folder / "share" / "nimbrale" / "selfie_landscape.onnx");
}

TEST_F(ModelFileTest, AMissingModelIsAnErrorThatNamesIt)
{
    const auto model = readModel(file);
    ASSERT_FALSE(model);
    EXPECT_EQ(model.error().code, ErrorCode::permanent);
    EXPECT_THAT(model.error().message, HasSubstr("cannot be read: " + file.string()));
}

TEST_F(ModelFileTest, AFolderInItsPlaceIsAnError)
{
    std::filesystem::create_directories(file);
    const auto model = readModel(file);
    ASSERT_FALSE(model);
    EXPECT_THAT(model.error().message, HasSubstr("cannot be read: " + file.string()));
}

TEST_F(ModelFileTest, EveryDamageIsSeen)
{
    const auto whole = readModel(modelFile(buildFolder()));
    ASSERT_TRUE(whole);
    QByteArray changed = *whole;
    changed[200000] = static_cast<char>(changed[200000] ^ 1);
    for (const QByteArray& bytes :
         {QByteArray(), QByteArray("no model"), changed, whole->left(whole->size() / 2), *whole + '\0'}) {
        write(file, bytes);
        const auto model = readModel(file);
        ASSERT_FALSE(model) << bytes.size() << " bytes";
        EXPECT_EQ(model.error().message, "The model that finds people is damaged: " + file.string());
    }
    write(file, *whole);
    EXPECT_TRUE(readModel(file)) << "the same place with the whole model";
}

} // namespace
} // namespace nimbrale::opencv
