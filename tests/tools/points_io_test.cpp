// Point streams: what the reader accepts, what it rejects (with the line),
// and the round-trip form of the writer.
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
    std::string error(const std::string& text) {
        try {
            read(text);
        } catch (const ToolError& e) {
            return e.what();
        }
        return "no error";
    }
    void TearDown() override { std::remove(path_.c_str()); }
    // One file per process: ctest runs the tests of this fixture in parallel.
    const std::string path_ = ::testing::TempDir() + "points_test_" + std::to_string(::getpid()) + ".txt";
};

TEST_F(PointsFile, AcceptsBlanksCommasCommentsHeaderAndCrlf) {
    const auto pts = read("x,y\r\n# comment\n\n1 2\n 3.5 ,\t-4 # trailing\n+5,6e-1\r\n7 8,\n");
    ASSERT_EQ(pts.size(), 4u);
    EXPECT_EQ(pts[3].y, 8.0f);
    EXPECT_EQ(pts[0].x, 1.0f);
    EXPECT_EQ(pts[1].x, 3.5f);
    EXPECT_EQ(pts[1].y, -4.0f);
    EXPECT_EQ(pts[2].x, 5.0f);
    EXPECT_EQ(pts[2].y, 0.6f);
}

TEST_F(PointsFile, DecimalsRoundOnceToTheNearestFloat) {
    // 16777217 is halfway between two floats and goes to the even one;
    // -0 keeps its sign, as the lens invert flags would.
    const auto pts = read("16777217 0.1000000015\n1.4e-45 -0\n");
    EXPECT_EQ(pts[0].x, 16777216.0f);
    EXPECT_EQ(pts[0].y, 0x1.99999ap-4f);
    EXPECT_EQ(pts[1].x, 0x1p-149f);
    EXPECT_TRUE(std::signbit(pts[1].y));
}

TEST_F(PointsFile, RejectsMalformedRowsWithFileAndLine) {
    EXPECT_EQ(error("1 2\n3 x\n"), path_ + ":2: 'x' is not a number");
    EXPECT_EQ(error("x y\n1 2 3\n"), path_ + ":2: expected 2 numbers, found 3");
    EXPECT_EQ(error("1\n"), path_ + ":1: expected 2 numbers, found 1");
    EXPECT_EQ(error("1 2\nx y\n"), path_ + ":2: 'x' is not a number");  // a header only on the first line
    EXPECT_EQ(error("1,,2\n"), path_ + ":1: ',' is not a number");
    EXPECT_EQ(error("1 inf\n"), path_ + ":1: inf is not a finite number");
    EXPECT_EQ(error("1e39 0\n"), path_ + ":1: '1e39' is out of range for a float");
    EXPECT_EQ(error("1-2 3\n"), path_ + ":1: '1-2' is not a number");
    EXPECT_EQ(error("0 0\n1 2e\n"), path_ + ":2: '2e' is not a number");
}

TEST_F(PointsFile, ReadsLargeFilesInBlocksAndALastLineWithoutNewline) {
    std::string text;
    for (int i = 0; i < 150000; ++i) text += std::to_string(i) + ".25 -7.5\n";  // about 2 MB
    text += "1 2";
    RowReader reader(write(text), 2);
    std::vector<tagKelPointF> pts(200000);
    ASSERT_EQ(read_points(reader, pts.data(), pts.size()), 150001u);
    EXPECT_EQ(pts[149999].x, 149999.25f);
    EXPECT_EQ(pts[150000].y, 2.0f);
    EXPECT_EQ(reader.line(), 150001);
}

TEST(PointsIo, MissingFileIsOneClearError) {
    try {
        RowReader reader("/nonexistent/points.txt", 2);
        FAIL();
    } catch (const ToolError& e) {
        EXPECT_STREQ(e.what(), "/nonexistent/points.txt: no such file");
    }
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
