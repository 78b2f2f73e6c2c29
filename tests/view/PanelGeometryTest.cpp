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

} // namespace
