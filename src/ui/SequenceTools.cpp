#include "ui/SequenceTools.h"

#include "formats/RememberedFormats.h"
#include "formats/Validation.h"
#include "loader/KavriLoader.h"
#include "tools/SequenceCopy.h"
#include "tools/SequenceNames.h"
#include "ui/KavriCopyDlg.h"
#include "ui/KavriFormatDialog.h"
#include "ui/KavriRenameDlg.h"
#include "ui/StatusText.h"

#include <QDir>
#include <QFileInfo>

QString SequenceTools::toolInput(const KavriLoader *loader, const QString &file)
{
    if (!loader || file.isEmpty() || loader->isStdin()) return {};
    if (!kavri::isPlayable(loader->validityMask())) return {};
    return file;
}

void SequenceTools::editFormat(KavriLoader *loader, const std::function<void()> &changed)
{
    if (!loader) return;
    KavriFormatDialog dlg(loader->pendingProps(), m_window);
    QObject::connect(&dlg, &KavriFormatDialog::format_changed, &dlg, [&changed] { changed(); });
    dlg.exec();
}

void SequenceTools::askForFormat(KavriLoader *loader, const std::function<void()> &changed)
{
    if (!loader) return;
    while (!kavri::isPlayable(loader->validityMask())) {
        KavriFormatDialog dlg(loader->pendingProps(), m_window);
        // Each round says why the last answer was refused, so the dialog never just comes back unexplained.
        dlg.setProblem(kavri::ui::formatProblem(loader->pendingProps()));
        QObject::connect(&dlg, &KavriFormatDialog::format_changed, &dlg, [&changed] { changed(); });
        if (dlg.exec() != QDialog::Accepted) break;
    }
}

void SequenceTools::extract(KavriLoader *loader, const QString &file, uint64_t currentFrame)
{
    if (toolInput(loader, file).isEmpty()) return;
    KavriExtractDlg dlg(loader->pendingProps(), currentFrame, m_window);
    dlg.exec();
}

void SequenceTools::reverse(KavriLoader *loader, const QString &file)
{
    if (toolInput(loader, file).isEmpty()) return;
    KavriReverseDlg dlg(loader->pendingProps(), m_window);
    dlg.exec();
}

QString SequenceTools::normalize(KavriLoader *loader, const QString &file)
{
    if (toolInput(loader, file).isEmpty()) return {};
    const QFileInfo fi(file);
    const QString folder = fi.canonicalPath().isEmpty() ? fi.absolutePath() : fi.canonicalPath();
    VideoProps props = loader->pendingProps();
    KavriRenameDlg dlg(fi.fileName(), kavri::tools::canonicalFileName(props), m_window);
    if (dlg.exec() != QDialog::Accepted || dlg.newName().isEmpty()) return {};
    const QString from = folder + QLatin1Char('/') + fi.fileName();
    const QString to = folder + QLatin1Char('/') + dlg.newName();
    if (from == to) return {};
    // A name with a folder in it would move the file; the rename refuses that, as it refuses to replace.
    const QString error = kavri::tools::renameKeepingAll(from, to);
    if (!error.isEmpty()) {
        KavriRenameDlg::showRenameError(m_window, QDir::toNativeSeparators(from), QDir::toNativeSeparators(to), error);
        return {};
    }
    // The format the user settled on follows the file to its new name.
    kavri::forgetRemembered(file);
    props.fileName = to;
    kavri::storeRemembered(props);
    return to;
}
