#include "view/PanelGeometry.h"

#include <gtest/gtest.h>

using namespace kavri::view;

namespace {

struct PaintCase {
    const char *name;
    QSize widget, image;
    bool keepAspect, anamorphic;
    int x, y, w, h;
};
void PrintTo(const PaintCase &c, std::ostream *os) { *os << c.name; }

class PaintGeometry : public ::testing::TestWithParam<PaintCase> {};

TEST_P(PaintGeometry, PlacesTheFrame)
{
    const PaintCase &c = GetParam();
    const DisplayRect d = paintGeometry(c.widget, c.image, c.keepAspect, c.anamorphic, 1.77);
    EXPECT_EQ(d.x, c.x);
    EXPECT_EQ(d.y, c.y);
    EXPECT_EQ(d.width, c.w);
    EXPECT_EQ(d.height, c.h);
}

const PaintCase kPaint[] = {
    {"same_shape_fills", {704, 576}, {352, 288}, true, false, 0, 0, 704, 576},
    {"one_pixel_wider_no_border", {705, 576}, {352, 288}, true, false, 0, 0, 704, 576},
    {"two_pixels_wider_border_one", {706, 576}, {352, 288}, true, false, 1, 0, 704, 576},
    {"wider_widget_pillarbox", {1000, 288}, {352, 288}, true, false, 324, 0, 352, 288},
    {"taller_widget_letterbox", {352, 500}, {352, 288}, true, false, 0, 106, 352, 288},
    {"stretch_without_aspect", {1000, 100}, {352, 288}, false, false, 0, 0, 1000, 100},
    {"anamorphic_widens_shape", {623, 288}, {352, 288}, true, true, 0, 0, 623, 288},
    {"no_image", {100, 100}, {0, 0}, true, false, 0, 0, 100, 100},
};
INSTANTIATE_TEST_SUITE_P(All, PaintGeometry, ::testing::ValuesIn(kPaint),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(PanelMapping, WidgetToImageRoundsUpAndClamps)
{
    const QSize img(100, 50);
    const DisplayRect d{10, 0, 200, 100};
    EXPECT_EQ(widgetToImage({10, 0}, d, img), QPoint(0, 0));
    EXPECT_EQ(widgetToImage({11, 1}, d, img), QPoint(1, 1));
    EXPECT_EQ(widgetToImage({12, 2}, d, img), QPoint(1, 1));
    EXPECT_EQ(widgetToImage({13, 3}, d, img), QPoint(2, 2));
    EXPECT_EQ(widgetToImage({0, -20}, d, img), QPoint(0, 0));
    EXPECT_EQ(widgetToImage({500, 500}, d, img), QPoint(99, 49));
}

TEST(PanelMapping, ImageToWidgetRoundsDownAndIsNotAnInverse)
{
    const QSize img(100, 50);
    const DisplayRect d{10, 5, 150, 75};
    EXPECT_EQ(imageToWidget({0, 0}, d, img), QPoint(10, 5));
    EXPECT_EQ(imageToWidget({1, 1}, d, img), QPoint(11, 6));
    EXPECT_EQ(imageToWidget({99, 49}, d, img), QPoint(158, 78));
    // Shrunk to half size, image pixel 1 starts at the same widget column as pixel 0.
    const DisplayRect half{10, 5, 50, 25};
    EXPECT_EQ(widgetToImage(imageToWidget({1, 1}, half, img), half, img), QPoint(0, 0));
}

TEST(Zoom, StepTargetsAndFactors)
{
    EXPECT_EQ(zoomTarget(ZoomStep::Z33, {1920, 1080}), QSize(640, 360));
    EXPECT_EQ(zoomTarget(ZoomStep::Z33, {1000, 1000}), QSize(333, 333));
    EXPECT_EQ(zoomTarget(ZoomStep::Z25, {1922, 1081}), QSize(480, 270));
    EXPECT_EQ(zoomTarget(ZoomStep::Z200, {352, 288}), QSize(704, 576));
    const int32_t factors[] = {1024, 1365, 2048, 4096, 8192};
    for (size_t i = 0; i < kZoomSteps.size(); ++i) EXPECT_EQ(zoomFactor(kZoomSteps[i]), factors[i]);
}

TEST(Zoom, AnamorphicMenuSizeTruncates)
{
    EXPECT_EQ(zoomVideoSize({10, 10}, true, 1.77), QSize(17, 10));
    EXPECT_EQ(anamorphicWidth(10, true, 1.77), 18);
    EXPECT_EQ(zoomVideoSize({10, 10}, false, 1.77), QSize(10, 10));
}

struct StepCase {
    const char *name;
    QSize panel;
    std::optional<ZoomStep> smaller, larger;
};
void PrintTo(const StepCase &c, std::ostream *os) { *os << c.name; }

class ZoomSteps : public ::testing::TestWithParam<StepCase> {};

TEST_P(ZoomSteps, SmallerAndLarger)
{
    const QSize video(352, 288);
    EXPECT_EQ(smallerStep(GetParam().panel, video), GetParam().smaller);
    EXPECT_EQ(largerStep(GetParam().panel, video), GetParam().larger);
}

const StepCase kSteps[] = {
    {"at_200", {704, 576}, ZoomStep::Z100, std::nullopt},
    {"slightly_above_200_within_slack", {712, 584}, ZoomStep::Z100, std::nullopt},
    {"beyond_200_plus_slack", {713, 585}, ZoomStep::Z200, std::nullopt},
    {"at_100", {352, 288}, ZoomStep::Z50, ZoomStep::Z200},
    {"at_50", {176, 144}, ZoomStep::Z33, ZoomStep::Z100},
    {"at_33", {117, 96}, ZoomStep::Z25, ZoomStep::Z50},
    {"at_25", {88, 72}, std::nullopt, ZoomStep::Z33},
    {"below_25", {40, 40}, std::nullopt, ZoomStep::Z25},
};
INSTANTIATE_TEST_SUITE_P(All, ZoomSteps, ::testing::ValuesIn(kSteps),
                         [](const auto &i) { return std::string(i.param.name); });

// ---- magnifier ----

struct MagnifierCase {
    const char *name;
    int factor;
    QSize source, pixel, drawn;
};
void PrintTo(const MagnifierCase &c, std::ostream *os) { *os << c.name; }

class Magnifier : public ::testing::TestWithParam<MagnifierCase> {};

TEST_P(Magnifier, SizesAtFactor)
{
    const MagnifierCase &c = GetParam();
    const MagnifierGeometry g = magnifierGeometry(c.factor);
    EXPECT_EQ(g.source, c.source);
    EXPECT_EQ(g.pixel, c.pixel);
    EXPECT_EQ(g.drawn, c.drawn);
    EXPECT_EQ(g.source.width() % 2, 1) << "a centre pixel needs an odd width";
    EXPECT_EQ(g.source.height() % 2, 1);
    // The whole magnified pixels always cover at least the nominal size.
    EXPECT_GE(g.drawn.width(), kMagnifierSize.width());
    EXPECT_GE(g.drawn.height(), kMagnifierSize.height());
}

const MagnifierCase kMagnifier[] = {
    {"x1_one_to_one", 256, {201, 121}, {256, 256}, {201, 121}},
    {"x1_17_both_made_odd", 300, {171, 103}, {301, 301}, {202, 122}},
    {"default_520", 520, {99, 59}, {520, 526}, {202, 122}},
    {"x4_even_width_made_odd", 1024, {51, 31}, {1009, 1000}, {202, 122}},
    {"x16", 4096, {13, 7}, {3959, 4426}, {202, 122}},
    {"x32_six_made_seven", 8192, {7, 3}, {7351, 10326}, {202, 122}},
    {"below_range_clamped", 100, {201, 121}, {256, 256}, {201, 121}},
    {"above_range_clamped", 20000, {7, 3}, {7351, 10326}, {202, 122}},
};
INSTANTIATE_TEST_SUITE_P(All, Magnifier, ::testing::ValuesIn(kMagnifier),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(MagnifierPlacement, SourceIsCentredOnThePoint)
{
    EXPECT_EQ(magnifierSourceRect({50, 30}, {99, 59}), QRect(1, 1, 99, 59));
    EXPECT_EQ(magnifierSourceRect({0, 0}, {7, 3}), QRect(-3, -1, 7, 3)) << "may reach outside the image";
}

struct PlacementCase {
    const char *name;
    QPoint centre;
    QSize widget;
    QRect expected;
};
void PrintTo(const PlacementCase &c, std::ostream *os) { *os << c.name; }

class MagnifierDrawn : public ::testing::TestWithParam<PlacementCase> {};

TEST_P(MagnifierDrawn, StaysInsideTheWidget)
{
    const PlacementCase &c = GetParam();
    EXPECT_EQ(magnifierDrawnRect(c.centre, {202, 122}, c.widget), c.expected);
}

const PlacementCase kPlacement[] = {
    {"middle_centred", {400, 300}, {800, 600}, {299, 239, 202, 122}},
    {"top_left_corner", {5, 5}, {800, 600}, {0, 0, 202, 122}},
    {"bottom_right_corner", {799, 599}, {800, 600}, {598, 478, 202, 122}},
    {"outside_left_and_below", {-50, 900}, {800, 600}, {0, 478, 202, 122}},
    // A widget smaller than the magnifier keeps its right/bottom edge, the last rule applied.
    {"widget_smaller_than_magnifier", {50, 50}, {100, 100}, {-102, -22, 202, 122}},
};
INSTANTIATE_TEST_SUITE_P(All, MagnifierDrawn, ::testing::ValuesIn(kPlacement),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(MagnifierPlacement, CentrePixelIsTheMiddleBlock)
{
    // At 32x: 7 x 3 source pixels of 28.7 x 40.3 widget pixels; the centre is pixel (3, 1), from 86.1 to 114.9
    // across and from 40.3 to 80.7 down, so the widget pixels 86..114 and 40..80 show it.
    const MagnifierGeometry g = magnifierGeometry(8192);
    const QRect c = magnifierCentrePixel(QRect(10, 20, 202, 122), g);
    EXPECT_EQ(c, QRect(10 + 86, 20 + 40, 29, 41));
    // At 1x the centre is the single pixel in the middle.
    EXPECT_EQ(magnifierCentrePixel(QRect(0, 0, 201, 121), magnifierGeometry(256)), QRect(100, 60, 1, 1));
}

TEST(MagnifierPlacement, GridLinesFollowTheImageGrid)
{
    // Source from pixel 5, 20 pixels long, 2x (512/256): multiples of 8 at 8, 16, 24 are 3, 11, 19 pixels in.
    EXPECT_EQ(magnifierGridLines(5, 20, 512, 8), (std::vector<int>{6, 22, 38}));
    // A line exactly at the start is drawn at the edge.
    EXPECT_EQ(magnifierGridLines(16, 10, 256, 16), (std::vector<int>{0}));
    // Starting left of the image: the line at image column 0 is 3 pixels in.
    EXPECT_EQ(magnifierGridLines(-3, 7, 7351, 4), (std::vector<int>{86}));
    EXPECT_TRUE(magnifierGridLines(1, 2, 256, 4).empty());
}

// ---- pixel grid ----

TEST(Grid, SizeIsClamped)
{
    const std::pair<int, int> cases[] = {{200, 128}, {128, 128}, {16, 16}, {4, 4}, {2, 4}, {-5, 4}};
    for (const auto &[in, out] : cases) EXPECT_EQ(clampGridSize(in), out) << in;
}

TEST(Grid, StepsInEighthsOfAPixel)
{
    EXPECT_EQ(gridStep8(1.0, 16), 128);
    EXPECT_EQ(gridStep8(0.5, 16), 64);
    EXPECT_EQ(gridStep8(1.0 / 3.0, 16), 43); // 42.67 rounds up: lines at 5, 10, 16, 21, ...
    EXPECT_EQ(gridLinePositions(43, 22), (std::vector<int>{5, 10, 16, 21}));
    EXPECT_EQ(gridLinePositions(128, 48), (std::vector<int>{16, 32}));
    EXPECT_EQ(gridLinePositions(128, 49), (std::vector<int>{16, 32, 48}));
    EXPECT_TRUE(gridLinePositions(0, 1000).empty()) << "a vanishing step must not loop";
}

TEST(Grid, BlockNumberCountsRowByRow)
{
    // 100 pixels wide, 16-pixel blocks: 7 per row (the last one partial).
    EXPECT_EQ(gridBlockNumber({0, 0}, 100, 16), 0);
    EXPECT_EQ(gridBlockNumber({99, 0}, 100, 16), 6);
    EXPECT_EQ(gridBlockNumber({0, 16}, 100, 16), 7);
    EXPECT_EQ(gridBlockNumber({33, 40}, 100, 16), 2 * 7 + 2);
}

} // namespace
