// Point streams: numbers rounded once to the nearest float, and the
// round-trip form of the writer.  What the reader accepts and rejects is
// tested through the tool (tests/tools/cases/inputs.cases).
#include <cmath>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "errors.h"
#include "workflow/numbers.h"
#include "points_io.h"

namespace vrncal::tools {
namespace {

class PointsFile : public ::testing::Test {
protected:
    std::string write(const std::string& text) {
        std::ofstream(path_, std::ios::binary) << text;
        return path_;
    }
    std::vector<tagKelPointF> read(const std::string& text) {
        RowReader reader(write(text), 2);
        std::vector<tagKelPointF> pts(16);
        pts.resize(read_points(reader, pts.data(), pts.size()));
        return pts;
    }
    void TearDown() override { std::remove(path_.c_str()); }
    // One file per process: ctest runs the tests of this fixture in parallel.
    const std::string path_ = ::testing::TempDir() + "points_test_" + std::to_string(::getpid()) + ".txt";
};

TEST_F(PointsFile, DecimalsRoundOnceToTheNearestFloat) {
    // 16777217 is halfway between two floats and goes to the even one;
    // -0 keeps its sign, as the lens invert flags would.
    const auto pts = read("16777217 0.1000000015\n1.4e-45 -0\n");
    EXPECT_EQ(pts[0].x, 16777216.0f);
    EXPECT_EQ(pts[0].y, 0x1.99999ap-4f);
    EXPECT_EQ(pts[1].x, 0x1p-149f);
    EXPECT_TRUE(std::signbit(pts[1].y));
}

TEST(PointsIo, WriterUsesTheShortestRoundTripForm) {
    fmt::memory_buffer buf;
    append_point(buf, {32768.0f, 0x1.000002p+15f});
    append_point(buf, {0.1f, 65535.0f});
    EXPECT_EQ(fmt::to_string(buf), "32768 32768.004\n0.1 65535\n");
    EXPECT_EQ(parse_float("32768.004"), 0x1.000002p+15f);
}

TEST(Numbers, WholeTextMustBeOneNumber) {
    EXPECT_EQ(parse_double(" 2.5\r"), 2.5);
    EXPECT_FALSE(parse_double("2.5mm"));
    EXPECT_FALSE(parse_double(""));
    EXPECT_FALSE(parse_int("12.5"));
    EXPECT_EQ(parse_int("+7"), 7);
    EXPECT_FALSE(parse_int("+-7"));
}

}  // namespace
}  // namespace vrncal::tools
