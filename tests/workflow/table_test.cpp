// The table writer and the statistics of the evaluation.
#include <cmath>
#include <gtest/gtest.h>

#include "workflow/stats.h"
#include "workflow/table_writer.h"

namespace vrncal::workflow {
namespace {

TEST(TableWriter, NominalGridIsRowMajorWithYFalling) {
    const auto g = nominal_grid(3, 80.0);
    ASSERT_EQ(g.size(), 9u);
    EXPECT_EQ(g[0].X, -40.0f);
    EXPECT_EQ(g[0].Y, 40.0f);
    EXPECT_EQ(g[1].X, 0.0f);
    EXPECT_EQ(g[5].X, 40.0f);
    EXPECT_EQ(g[5].Y, 0.0f);
    EXPECT_EQ(g[8].Y, -40.0f);
    EXPECT_EQ(g[8].RealX, g[8].X);
    // A pitch that is not a float: 70 / 8 = 8.75 is, 70 / 6 is not.
    const auto h = nominal_grid(7, 70.0);
    EXPECT_EQ(h[1].X, static_cast<float>(-35.0 + 70.0 / 6));
}

TEST(TableWriter, WritesTheSectionsAndShortestNumbers) {
    TableContent t;
    t.comments = {"made by a test"};
    t.val_size = 80.0;
    t.x_invert = 1;
    const auto nine = nominal_grid(3, 80.0);
    std::copy(nine.begin(), nine.end(), t.nine);
    t.nine[4].RealX = 0x1.99999ap-4f;
    tagStack s;
    s.Size = 5;
    s.Points = nominal_grid(5, 80.0);
    t.grids.push_back(s);
    const std::string text = table_text(t);
    const std::string head = text.substr(0, text.find("PNT3="));
    EXPECT_EQ(head,
              "; made by a test\n[CalCoefs]\nValSize=80\nResolution=65535\nLEN_XYFLIP=0\nLEN_XINVERT=1\n"
              "LEN_YINVERT=0\norder=5\n[Cal3]\nPNT0=-40 40 -40 40\nPNT1=0 40 0 40\nPNT2=40 40 40 40\n");
    EXPECT_NE(text.find("PNT4=0 0 0.1 0\n"), std::string::npos);
    EXPECT_NE(text.find("[Cal5]\nPNT0=-40 40 -40 40\nPNT1=-20 40 -20 40\n"), std::string::npos);
    EXPECT_NE(text.find("PNT24=40 -40 40 -40\n"), std::string::npos);
}

TEST(Stats, MaxRmsAndNearestRankPercentile) {
    std::vector<double> e;
    for (int i = 1; i <= 20; ++i) e.push_back(i);
    const auto s = summarize(e);
    EXPECT_EQ(s.max, 20.0);
    EXPECT_EQ(s.p95, 19.0);  // rank ceil(0.95 * 20) = 19
    EXPECT_DOUBLE_EQ(s.rms, std::sqrt(2870.0 / 20.0));
    EXPECT_EQ(summarize({3.0}).p95, 3.0);
    EXPECT_EQ(summarize({}).count, 0u);
}

}  // namespace
}  // namespace vrncal::workflow
