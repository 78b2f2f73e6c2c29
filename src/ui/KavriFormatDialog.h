// "Select Format": states or corrects the format record of the open file. The dialog edits the record it
// is given in place on OK or Apply, and then tells the window through format_changed().
#pragma once

#include "formats/SizeGuess.h"
#include "formats/VideoProps.h"

#include <QDialog>
#include <QList>
#include <QMetaType>
#include <optional>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QTabWidget;
namespace kavri::ui {
class ColourTab;
}

class KavriFormatDialog : public QDialog {
    Q_OBJECT
public:
    // One preset size; the first entry (-1 x -1) stands for the record's own size.
    struct res_sizes {
        QString name;
        int32_t width = -1;
        int32_t height = -1;
    };
    static const QList<res_sizes> &presets();

    // `props` must outlive the dialog; it changes only on OK or Apply.
    explicit KavriFormatDialog(VideoProps &props, QWidget *parent = nullptr);
    // A sentence shown above the buttons saying why the record as it stands cannot be played.
    void setProblem(const QString &text);

signals:
    void format_changed();

public slots:
    void accept() override;
    void oon_apply();
    void resolution_changed(int index);
    void oon_bits_changed(int bits);
    void oon_color_changed(int index);

private slots:
    // The frame count the typed size, layout, depth and header give in the file, and whether it is whole.
    void updateFrameFit();
    // The sizes that divide the file into whole frames at the chosen layout, depth and header.
    void updateGuesses();
    void guess_chosen(int index);

private:
    void copyToRecord();
    // The layout the list shows, as a layout value.
    videoFormat_t chosenFormat() const;
    int32_t chosenContainerBits() const;

    VideoProps &m_props;
    QTabWidget *m_tabs = nullptr;
    QComboBox *m_resolutions = nullptr;
    QLineEdit *m_width = nullptr;
    QLineEdit *m_height = nullptr;
    QCheckBox *m_anamorph = nullptr;
    QDoubleSpinBox *m_rate = nullptr;
    QComboBox *m_format = nullptr;
    QCheckBox *m_flipped = nullptr;
    QCheckBox *m_swap = nullptr;
    QSpinBox *m_bits = nullptr;
    QCheckBox *m_endian = nullptr;
    QCheckBox *m_signed = nullptr;
    QComboBox *m_container = nullptr;
    QLineEdit *m_headerBytes = nullptr;
    QLineEdit *m_strides = nullptr;      // row stride of each plane, "2048,1024,1024"; empty = packed
    QLineEdit *m_planeOffsets = nullptr; // start of each plane; empty = one after another
    QLabel *m_problem = nullptr;
    kavri::ui::ColourTab *m_colour = nullptr;
    // Size guessing: the file's size when it is a file that is there (not standard input, not vanished).
    std::optional<uint64_t> m_fileSize;
    kavri::GuessHints m_hints;
    QComboBox *m_guesses = nullptr;
    QLabel *m_fileSizeText = nullptr;
    QLabel *m_frameFit = nullptr;
};

Q_DECLARE_METATYPE(KavriFormatDialog::res_sizes)
