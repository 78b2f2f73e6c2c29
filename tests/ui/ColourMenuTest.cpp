#include "ui/ColourMenu.h"

#include <QAction>
#include <gtest/gtest.h>

using namespace kavri;

namespace {
QAction *item(QMenu &m, const QString &text)
{
    for (QAction *a : m.actions())
        if (a->text() == text) return a;
    return nullptr;
}
} // namespace

TEST(ColourMenu, SwitchesOneFieldAndMarksTheReadingInUse)
{
    ColourDescription held;
    held.chroma = ChromaSiting::Left;
    int sets = 0;
    ui::ColourMenu menu([&] { return held; },
                        [&](const ColourDescription &c) {
                            held = c;
                            ++sets;
                        });
    menu.refresh();
    ASSERT_NE(item(menu, "Default conversion"), nullptr);
    EXPECT_TRUE(item(menu, "Default conversion")->isChecked());
    EXPECT_TRUE(item(menu, "Full range")->isChecked());
    EXPECT_TRUE(item(menu, "SDR")->isChecked());

    item(menu, "BT.709")->trigger();
    item(menu, "Limited range")->trigger();
    item(menu, "PQ (tone-mapped)")->trigger();
    EXPECT_EQ(sets, 3);
    EXPECT_EQ(held.matrix, ColourMatrix::BT709);
    EXPECT_EQ(held.range, ColourRange::Limited);
    EXPECT_EQ(held.transfer, ColourTransfer::PQ);
    EXPECT_EQ(held.chroma, ChromaSiting::Left); // what the menu does not offer is kept
    EXPECT_TRUE(item(menu, "BT.709")->isChecked());
    EXPECT_FALSE(item(menu, "Default conversion")->isChecked());
    EXPECT_TRUE(item(menu, "Limited range")->isChecked());
}
