#pragma once

#include <QImage>

#include <filesystem>
#include <gtest/gtest.h>
#include <string>

namespace nimbrale::test {

struct ImageTolerance {
    /// How much each of red, green and blue may differ.
    int perChannel = 0;
    /// How many pixels may differ by more than that.
    int differingPixels = 0;
    /// Pixels as near as this to a change of color in the expected picture are not compared.
    int edgeDistance = 0;
};

/// Compares size and every pixel's red, green and blue; alpha counts when both have it. On a difference, the pictures
/// and a map of the differing pixels are kept under test-output in the build folder, and the failure says where, how
/// many pixels differ, by how much at most, and the rectangle around them. Use as EXPECT_TRUE(imagesMatch(…)).
[[nodiscard]] testing::AssertionResult imagesMatch(const QImage& actual, const QImage& expected,
                                                   ImageTolerance tolerance = {});

/// The same comparison without keeping or saying anything, for waiting until pictures match.
[[nodiscard]] bool imagesAreAlike(const QImage& actual, const QImage& expected, ImageTolerance tolerance = {});

/// Keeps a picture under test-output, named after the running test and `name`; says where.
std::filesystem::path keepImage(const QImage& image, const std::string& name);

/// The folder test-output in the build folder, made when missing.
[[nodiscard]] std::filesystem::path testOutputFolder();

} // namespace nimbrale::test
