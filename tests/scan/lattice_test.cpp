// Matching on point sets: a 9 x 9 plan laid at any angle, turned or
// mirrored, with dust, missing, doubled and misplaced marks; and the sets
// that must be refused.
#include <cmath>
#include <gtest/gtest.h>
#include <random>

#include "scan/lattice.h"
#include "workflow/error.h"
#include "workflow/job.h"

namespace vrncal::scan {
namespace {

constexpr double kPitch = 100.0, kMark = 10.0;

struct Sheet {
    double angle = 0.0;  // degrees
    bool mirror = false;
    std::vector<int> missing, doubled;
    int dust = 0;
    int moved = -1;  // a node put 0.2 pitch off
    bool marker = true;
    double scale = 1.0;  // of the pitch
};

Sheet sheet(double angle, bool mirror = false, int dust = 0) {
    Sheet s;
    s.angle = angle, s.mirror = mirror, s.dust = dust;
    return s;
}

// Column c, row r of the plan on the image.
Point at(const Sheet& s, double c, double r) {
    const double th = s.angle * 3.14159265358979 / 180.0, p = kPitch * s.scale;
    const double x = s.mirror ? -c * p : c * p, y = r * p;
    return Point{2000 + std::cos(th) * x - std::sin(th) * y, 2000 + std::sin(th) * x + std::cos(th) * y};
}

// The candidates of a sheet: node k is candidate k (a missing one is placed
// far away and never matched), then the marker, then the rest.
LatticeInput lay(const Sheet& s, int n = 9) {
    LatticeInput in;
    in.name = "sheet";
    in.n = n;
    in.pitch_px = kPitch;
    in.mark_px = kMark;
    in.marker = true;
    auto place = [&](double c, double r) { return at(s, c, r); };
    std::mt19937_64 gen(7);
    std::uniform_real_distribution<double> jitter(-0.5, 0.5), where(0.0, 1.0);
    for (int k = 0; k < n * n; ++k) {
        Point q = place(k % n + 0.01 * jitter(gen), k / n + 0.01 * jitter(gen));
        if (k == s.moved) q = place(k % n + 0.2, k / n);
        if (std::find(s.missing.begin(), s.missing.end(), k) != s.missing.end()) q = Point{-1e6 - k, -1e6};
        in.centres.push_back(q);
    }
    if (s.marker) in.centres.push_back(place(workflow::kMarkerColumn, workflow::kMarkerRow));
    for (int k : s.doubled) in.centres.push_back(place(k % n + 1.5 * kMark / kPitch, k / n));
    for (int i = 0; i < s.dust;) {
        const double c = -1 + (n + 1) * where(gen), r = -1 + (n + 1) * where(gen);
        const double off_node = std::hypot(c - std::round(c), r - std::round(r));
        const double off_marker = std::hypot(std::fmod(c + 10, 1.0) - 0.5, std::fmod(r + 10, 1.0) - 0.5);
        if (off_node < 0.35 || off_marker < 0.3) continue;  // clear of nodes and every place of the marker
        in.centres.push_back(place(c, r));
        ++i;
    }
    return in;
}

std::string refusal(const LatticeInput& in) {
    try {
        match_lattice(in);
    } catch (const workflow::Error& e) {
        return e.what();
    }
    return "accepted";
}

TEST(Lattice, EveryPlacementMatchesEveryNode) {
    const Sheet sheets[] = {sheet(0),         sheet(90),        sheet(180),          sheet(270),
                            sheet(7),         sheet(-33.3),     sheet(0, true),      sheet(90, true),
                            sheet(180, true), sheet(123, true), sheet(3, false, 40), sheet(200, true, 80)};
    for (const Sheet& s : sheets) {
        const LatticeInput in = lay(s);
        const LatticeMatch m = match_lattice(in);
        for (int k = 0; k < 81; ++k) EXPECT_EQ(m.node[static_cast<std::size_t>(k)], k) << s.angle << " " << s.mirror;
        EXPECT_EQ(m.marker, 81);
        EXPECT_EQ(m.rejected.size(), static_cast<std::size_t>(s.dust));
        EXPECT_NEAR(m.pitch, kPitch, 0.5);
    }
}

TEST(Lattice, MissingDoubledAndMisplacedMarksAreNamed) {
    Sheet s = sheet(17, true, 10);
    s.missing = {3, 40, 80}, s.doubled = {22}, s.moved = 30;
    const LatticeMatch m = match_lattice(lay(s));
    for (int k = 0; k < 81; ++k) {
        const bool lost = k == 3 || k == 40 || k == 80 || k == 22 || k == 30;
        EXPECT_EQ(m.node[static_cast<std::size_t>(k)], lost ? -1 : k) << k;
    }
    EXPECT_EQ(m.problem[3].rfind("no mark found near", 0), 0u) << m.problem[3];
    EXPECT_NE(m.problem[22].find("2 marks near it"), std::string::npos) << m.problem[22];
    EXPECT_NE(m.problem[30].find("from where its neighbours put it"), std::string::npos) << m.problem[30];
    // The centre mark is predicted from its neighbours.
    EXPECT_NEAR(m.predicted[40].x, lay(sheet(17, true)).centres[40].x, 1.0);
}

TEST(Lattice, RefusesWhatIsNotThePlansSheet) {
    Sheet wide = sheet(5);
    wide.scale = 2.0;
    EXPECT_NE(refusal(lay(wide)).find("is the resolution (--dpi) or the plan wrong"), std::string::npos);
    Sheet no_marker = sheet(5);
    no_marker.marker = false;
    EXPECT_NE(refusal(lay(no_marker)).find("orientation marker is not found"), std::string::npos);
    LatticeInput bigger = lay(sheet(5));
    bigger.n = 17;
    EXPECT_NE(refusal(bigger).find("grid of 9 x 9 nodes where the plan has 17 x 17"), std::string::npos);
    LatticeInput smaller = lay(sheet(5), 9);
    smaller.n = 5;
    EXPECT_NE(refusal(smaller).find("larger than the plan's 5 x 5"), std::string::npos);
    // A speck where the marker of the sheet mirrored would be.
    LatticeInput twice = lay(sheet(5));
    twice.centres.push_back(at(sheet(5), 8 - workflow::kMarkerColumn, workflow::kMarkerRow));
    EXPECT_NE(refusal(twice).find("are both where the orientation marker may be"), std::string::npos);
    EXPECT_NE(refusal(LatticeInput{"sheet", {Point{1, 1}, Point{2, 2}}, 9, kPitch, kMark, true}).find("2 marks found"),
              std::string::npos);
}

}  // namespace
}  // namespace vrncal::scan
