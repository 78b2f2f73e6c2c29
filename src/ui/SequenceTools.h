// The tools a window offers on its open sequence: the format dialog, extract, reverse and the
// normalisation of the file name. Each runs its dialog over the loader's pending record.
#pragma once

#include <QString>
#include <cstdint>
#include <functional>

class KavriLoader;
class QWidget;

class SequenceTools {
public:
    explicit SequenceTools(QWidget *window) : m_window(window) {}

    // The file the tools may work on: a playable file, not a stream (standard input, a named pipe), else
    // empty.
    static QString toolInput(const KavriLoader *loader, const QString &file);

    // The format dialog; `changed` runs after each OK or Apply.
    void editFormat(KavriLoader *loader, const std::function<void()> &changed);
    // The format dialog again and again until the record is playable or the user gives up; each round
    // says why the last answer was refused.
    void askForFormat(KavriLoader *loader, const std::function<void()> &changed);
    void extract(KavriLoader *loader, const QString &file, uint64_t currentFrame);
    void reverse(KavriLoader *loader, const QString &file);
    // Offers the canonical name and renames the file; the new path, or empty when nothing was renamed.
    // The remembered record follows the file to its new name.
    QString normalize(KavriLoader *loader, const QString &file);

private:
    QWidget *m_window;
};
