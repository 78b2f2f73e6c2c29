// The work objects of the Extract and Reverse dialogs, made from the open file's record: they skip a y4m
// input's FRAME lines and write a y4m output's header and lines, or refuse with nothing left behind.
#include "formats/FormatSource.h"
#include "formats/Validation.h"
#include "support/TempFiles.h"
#include "tools/CopyWork.h"

#include <QDir>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::test::readAll;
using kavri::test::TempDir;

namespace {

QByteArray frame(int i) { return QByteArray(8 * 4, char('a' + i)); }

VideoProps recordOf(const QString &path)
{
    VideoProps p = resolveFormat(path, false).props;
    p.fileName = path;
    EXPECT_TRUE(isPlayable(validateProps(p)));
    return p;
}

TEST(Y4mCopyWork, DialogJobsReadAndWriteY4m)
{
    TempDir dir;
    QByteArray y4m = "YUV4MPEG2 W8 H4 F24:1 Cmono XCOLORRANGE=FULL\n";
    for (int i = 0; i < 4; ++i) y4m += "FRAME\n" + frame(i);
    const VideoProps p = recordOf(dir.write("in.y4m", y4m));
    const QByteArray header = "YUV4MPEG2 W8 H4 F24:1 Ip A1:1 Cmono\n";

    ExtractWork extract(p, dir.path("part.y4m"), 1, 2, false);
    extract.run();
    ASSERT_TRUE(extract.succeeded()) << extract.errorText().toStdString();
    EXPECT_EQ(readAll(dir.path("part.y4m")), header + "FRAME\n" + frame(1) + "FRAME\n" + frame(2));

    ReverseWork reverse(p, dir.path("rev.raw"), false);
    reverse.run();
    ASSERT_TRUE(reverse.succeeded()) << reverse.errorText().toStdString();
    EXPECT_EQ(readAll(dir.path("rev.raw")), frame(3) + frame(2) + frame(1) + frame(0));
}

TEST(Y4mCopyWork, ARecordWithoutATagIsRefusedAndNothingIsLeft)
{
    TempDir dir;
    QByteArray raw;
    for (int i = 0; i < 3; ++i) raw += QByteArray(8 * 4 * 3, char(i));
    VideoProps p;
    p.fileName = dir.write("in.rgb", raw);
    p.width = 8;
    p.height = 4;
    p.format = RGB_i444;
    ASSERT_TRUE(isPlayable(validateProps(p)));
    ExtractWork work(p, dir.path("out.y4m"), 0, 1, false);
    work.run();
    EXPECT_FALSE(work.succeeded());
    EXPECT_TRUE(work.errorText().contains("y4m")) << work.errorText().toStdString();
    EXPECT_EQ(QDir(dir.dir()).entryList(QDir::Files | QDir::Hidden), QStringList{"in.rgb"});
    // The same record still goes to a raw file as before.
    ExtractWork plain(p, dir.path("out.rgb"), 0, 1, false);
    plain.run();
    ASSERT_TRUE(plain.succeeded()) << plain.errorText().toStdString();
    EXPECT_EQ(readAll(dir.path("out.rgb")), raw.left(2 * 96));
}

} // namespace
