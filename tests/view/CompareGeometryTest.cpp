#include "view/CompareGeometry.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace kavri::view;

namespace {

struct TileCase {
    const char *name;
    CompareMode mode;
    int count;
    QSize widget;
    std::vector<QRect> expected;
};
void PrintTo(const TileCase &c, std::ostream *os) { *os << c.name; }

class Tiles : public ::testing::TestWithParam<TileCase> {};

TEST_P(Tiles, SplitTheWidget)
{
    const TileCase &c = GetParam();
    const std::vector<QRect> r = tileRects(c.mode, c.count, c.widget, 2);
    ASSERT_EQ(r.size(), c.expected.size());
    for (size_t i = 0; i < r.size(); ++i) {
        EXPECT_EQ(r[i], c.expected[i]) << "tile " << i;
        EXPECT_TRUE(QRect(QPoint(0, 0), c.widget).contains(r[i]) || r[i].isEmpty()) << "tile " << i;
        for (size_t j = 0; j < i; ++j) EXPECT_FALSE(r[i].intersects(r[j])) << i << " overlaps " << j;
    }
}

const TileCase kTiles[] = {
    {"single", CompareMode::Single, 4, {800, 600}, {QRect(0, 0, 800, 600)}},
    {"wipe_is_one_picture", CompareMode::Wipe, 2, {800, 600}, {QRect(0, 0, 800, 600)}},
    {"side_by_side_of_one", CompareMode::SideBySide, 1, {800, 600}, {QRect(0, 0, 800, 600)}},
    {"two_up", CompareMode::SideBySide, 2, {800, 600}, {QRect(0, 0, 399, 600), QRect(401, 0, 399, 600)}},
    {"two_up_odd_width", CompareMode::SideBySide, 2, {801, 600}, {QRect(0, 0, 400, 600), QRect(402, 0, 399, 600)}},
    {"three_in_grid",
     CompareMode::SideBySide,
     3,
     {800, 600},
     {QRect(0, 0, 399, 299), QRect(401, 0, 399, 299), QRect(0, 301, 399, 299)}},
    {"four_in_grid",
     CompareMode::SideBySide,
     4,
     {800, 601},
     {QRect(0, 0, 399, 300), QRect(401, 0, 399, 300), QRect(0, 302, 399, 299), QRect(401, 302, 399, 299)}},
};
INSTANTIATE_TEST_SUITE_P(All, Tiles, ::testing::ValuesIn(kTiles),
                         [](const auto &i) { return std::string(i.param.name); });

struct WipeCase {
    const char *name;
    Wipe wipe;
    QRect picture;
    int line;
    QPoint firstSide, secondSide; // a pixel each side just next to the line
};
void PrintTo(const WipeCase &c, std::ostream *os) { *os << c.name; }

class WipeGeometry : public ::testing::TestWithParam<WipeCase> {};

TEST_P(WipeGeometry, SplitsThePictureAtTheLine)
{
    const WipeCase &c = GetParam();
    EXPECT_EQ(wipeLine(c.wipe, c.picture), c.line);
    EXPECT_EQ(wipeSide(c.wipe, c.picture, c.firstSide), 0);
    EXPECT_EQ(wipeSide(c.wipe, c.picture, c.secondSide), 1);
    const auto [a, b] = wipeParts(c.wipe, c.picture);
    EXPECT_EQ(a.united(b), c.picture);
    EXPECT_FALSE(a.intersects(b));
    EXPECT_TRUE(a.contains(c.firstSide) || a.isEmpty());
    EXPECT_TRUE(b.contains(c.secondSide) || b.isEmpty());
    // Every pixel of each part is on the side wipeSide names.
    for (const QPoint p : {a.topLeft(), a.bottomRight()})
        if (!a.isEmpty()) {
            EXPECT_EQ(wipeSide(c.wipe, c.picture, p), 0);
        }
    for (const QPoint p : {b.topLeft(), b.bottomRight()})
        if (!b.isEmpty()) {
            EXPECT_EQ(wipeSide(c.wipe, c.picture, p), 1);
        }
}

const WipeCase kWipes[] = {
    {"vertical_half", {WipeOrientation::Vertical, 0.5}, QRect(100, 50, 400, 300), 300, {299, 60}, {300, 60}},
    {"vertical_quarter", {WipeOrientation::Vertical, 0.25}, QRect(0, 0, 400, 300), 100, {99, 0}, {100, 299}},
    {"horizontal_third", {WipeOrientation::Horizontal, 1.0 / 3}, QRect(10, 20, 400, 300), 120, {10, 119}, {409, 120}},
    {"left_edge_all_second", {WipeOrientation::Vertical, 0.0}, QRect(10, 0, 100, 50), 10, {9, 0}, {10, 0}},
    {"beyond_right_clamped", {WipeOrientation::Vertical, 1.7}, QRect(10, 0, 100, 50), 110, {109, 0}, {110, 0}},
};
INSTANTIATE_TEST_SUITE_P(All, WipeGeometry, ::testing::ValuesIn(kWipes),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(WipeDrag, TheLineFollowsTheMouseInsideThePicture)
{
    const QRect pic(100, 50, 400, 300);
    EXPECT_DOUBLE_EQ(wipePositionAt(WipeOrientation::Vertical, pic, {300, 0}), 0.5);
    EXPECT_DOUBLE_EQ(wipePositionAt(WipeOrientation::Vertical, pic, {0, 0}), 0.0);
    EXPECT_DOUBLE_EQ(wipePositionAt(WipeOrientation::Vertical, pic, {900, 0}), 1.0);
    EXPECT_DOUBLE_EQ(wipePositionAt(WipeOrientation::Horizontal, pic, {0, 125}), 0.25);
    // The dragged position puts the line under the mouse.
    const Wipe w{WipeOrientation::Vertical, wipePositionAt(WipeOrientation::Vertical, pic, {217, 9})};
    EXPECT_EQ(wipeLine(w, pic), 217);
}

TEST(FreeZoom, MapsBothWaysAndPixelsFloor)
{
    const FreeZoom z{4.0, QPointF(-100, 20)};
    EXPECT_EQ(imageToView(QPointF(30, 5), z), QPointF(20, 40));
    EXPECT_EQ(viewToImage(QPointF(20, 40), z), QPointF(30, 5));
    EXPECT_EQ(viewToImagePixel(QPointF(23.9, 43.9), z), QPoint(30, 5));
    EXPECT_EQ(viewToImagePixel(QPointF(24, 44), z), QPoint(31, 6));
    // Left of the image: a negative pixel, not pixel 0.
    EXPECT_EQ(viewToImagePixel(QPointF(-101, 20), z), QPoint(-1, 0));
}

struct StepCase {
    const char *name;
    double from;
    int steps;
    double to;
};
void PrintTo(const StepCase &c, std::ostream *os) { *os << c.name; }
class FreeZoomSteps : public ::testing::TestWithParam<StepCase> {};
TEST_P(FreeZoomSteps, MoveOnHalfOctaves)
{
    EXPECT_DOUBLE_EQ(steppedZoom(GetParam().from, GetParam().steps), GetParam().to);
}
const StepCase kSteps[] = {
    {"in_from_100", 1.0, 1, std::sqrt(2.0)},
    {"two_in_is_double", 1.0, 2, 2.0},
    {"out_from_100", 1.0, -2, 0.5},
    {"back_to_100_exactly", std::sqrt(2.0), -1, 1.0},
    {"off_grid_snaps", 1.1, 0, 1.0},
    {"clamped_at_64", 64.0, 1, 64.0},
    {"clamped_at_a_sixteenth", 1.0 / 16, -3, 1.0 / 16},
    {"from_beyond_range", 500.0, -2, 32.0},
};
INSTANTIATE_TEST_SUITE_P(All, FreeZoomSteps, ::testing::ValuesIn(kSteps),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(FreeZoom, ZoomAboutKeepsThePointUnderTheCursor)
{
    const FreeZoom z{1.5, QPointF(-37, 12)};
    for (const double nz : {0.01, 1.0 / 16, 0.3, 2.0, 7.5, 64.0, 200.0}) {
        const QPointF anchor(311, 97);
        const FreeZoom r = zoomAbout(z, nz, anchor);
        EXPECT_DOUBLE_EQ(r.zoom, clampFreeZoom(nz));
        const QPointF before = viewToImage(anchor, z), after = viewToImage(anchor, r);
        EXPECT_NEAR(after.x(), before.x(), 1e-9) << nz;
        EXPECT_NEAR(after.y(), before.y(), 1e-9) << nz;
    }
}

TEST(FreeZoom, ClampedPanReachesEveryCornerOfALargePicture)
{
    // A 4K frame at 100 % in a 1920x1200 view: far corners reachable, never beyond.
    const QSize image(3840, 2160), view(1920, 1200);
    const FreeZoom far = clampPan({1.0, QPointF(-99999, -99999)}, image, view);
    EXPECT_EQ(far.offset, QPointF(1920 - 3840, 1200 - 2160));
    EXPECT_EQ(imageToView(QPointF(3840, 2160), far), QPointF(1920, 1200)) << "bottom-right meets the view's";
    const FreeZoom near = clampPan({1.0, QPointF(500, 300)}, image, view);
    EXPECT_EQ(near.offset, QPointF(0, 0));
    const FreeZoom inside = clampPan({1.0, QPointF(-700, -40)}, image, view);
    EXPECT_EQ(inside.offset, QPointF(-700, -40)) << "a reachable offset stays";
}

TEST(FreeZoom, ClampedPanCentresASmallPictureOnEachAxis)
{
    // 1/4 of 1920x1080 is 480x270 in a 1000x200 view: centred across, movable along the height.
    const FreeZoom r = clampPan({0.25, QPointF(900, -50)}, QSize(1920, 1080), QSize(1000, 200));
    EXPECT_EQ(r.offset, QPointF(260, -50));
    EXPECT_EQ(clampPan({0.25, QPointF(900, -500)}, QSize(1920, 1080), QSize(1000, 200)).offset, QPointF(260, -70));
}

TEST(FreeZoom, IndicatorText)
{
    EXPECT_EQ(zoomText(1.0), "Zoom 100%");
    EXPECT_EQ(zoomText(1.0 / 16), "Zoom 6.25%");
    EXPECT_EQ(zoomText(64.0), "Zoom 6400%");
    EXPECT_EQ(zoomText(std::sqrt(2.0)), "Zoom 141.4%");
}

} // namespace
