// The main window's actions and menus as data: object names, texts, shortcuts, checkability, and the
// order of the menus. The window creates everything from these tables in one place.
#pragma once

#include <array>
#include <string_view>

namespace kavri::ui {

struct ActionSpec {
    std::string_view name; // object name
    std::string_view text;
    std::string_view shortcut; // key-sequence text, empty for none
    bool checkable;
    bool checked;
    std::string_view statusTip;
    std::string_view whatsThis;
};

inline constexpr std::array<ActionSpec, 45> kActions = {{
    // clang-format off
    {"actionOpen", "Open File(s) ...", "O", false, false, "", ""},
    {"actionQuit", "Quit", "Esc", false, false, "", ""},
    {"actionPlay", "Play/Pause", "Space", false, false, "", ""},
    {"actionPrev", "Previous Frame", "Left", false, false, "", ""},
    {"actionNext", "Next Frame", "Right", false, false, "", ""},
    {"actionStop", "Stop", "", false, false, "", ""},
    {"actionCloseFile", "Close File", "", false, false, "", ""},
    {"actionFirst_Frame", "First Frame", "Home", false, false, "", ""},
    {"actionLast_Frame", "Last Frame", "End", false, false, "", ""},
    {"actionTimecode", "Timecode etc.", "T", true, false, "", ""},
    {"actionDeinterlace", "Deinterlace", "I", true, false, "", ""},
    {"actionFormat", "Format", "Ctrl+F", false, false, "", ""},
    {"actionNext_Channel", "Next Channel", "N", false, false, "Display the next color channel", ""},
    {"actionLoop", "Loop", "", true, true, "", ""},
    {"actionReload", "Reload", "Ctrl+R", false, false, "", ""},
    {"actionCopy_Frame", "Copy Frame", "Ctrl+C", false, false, "", ""},
    {"actionSave_Frame", "Save Frame", "Ctrl+Shift+S", false, false, "", ""},
    {"actionGo_to_frame", "Go to frame ...", "Ctrl+G", false, false, "", ""},
    {"actionDifference_against", "Difference against ...", "D", false, false, "", ""},
    {"actionFullscreen", "Fullscreen", "", true, false, "", ""},
    {"actionSize", "Size", "", false, false, "", ""},
    {"action25", "25%", "", true, false, "", ""},
    {"action33", "33%", "", true, false, "", ""},
    {"action50", "50%", "", true, false, "", ""},
    {"action100", "100%", "Ctrl+0", true, false, "", ""},
    {"action200", "200%", "", true, false, "", ""},
    {"actionSmaller", "Smaller", "-", false, false, "", ""},
    {"actionLarger", "Larger", "+", false, false, "", ""},
    {"actionMagnifier", "Magnifier", "M", true, false, "Hold Down ALT key for temporary use", ""},
    {"actionFast_Forward", "Fast Forward", "Shift+Right", false, false, "", ""},
    {"actionFast_Backward", "Fast Backward", "Shift+Left", false, false, "", ""},
    {"actionNormalize_File_Name", "Normalize File Name ...", "F", false, false, "", ""},
    {"actionOnline_Help", "Online Help", "", false, false, "", ""},
    {"actionExtract", "Extract ...", "", false, false, "", "Extract <b>Video portion</b> from this file"},
    {"actionSettings", "Settings", "Ctrl+S", false, false, "", ""},
    {"actionMaintain_Aspect_Ratio", "Maintain Aspect Ratio", "A", true, false, "", ""},
    {"actionBrightness_Contrast_etc", "Brightness, Contrast etc.", "B", true, false, "", ""},
    {"actionSynchronize", "Synchronize ...", "", false, false, "", ""},
    {"actionAbout", "About", "", false, false, "", ""},
    {"actionNew_Window", "New Window ...", "Ctrl+N", false, false, "", ""},
    {"actionReverse", "Reverse ...", "", false, false, "", ""},
    {"actionGrid", "Grid", "G", true, false, "", ""},
    {"actionNext_Diff_Component", "Next Diff Component", "V", false, false, "", ""},
    {"actionPrevious_Diff_Component", "Previous Diff Component", "C", false, false, "", ""},
    {"actionStay_on_top", "Stay on top", "Ctrl+T", true, false, "", ""},
    // clang-format on
}};

struct MenuSpec {
    std::string_view name; // object name
    std::string_view title;
    // Action object names in order; "-" is a separator, "menuSize" the Size submenu.
    std::array<std::string_view, 12> items;
};

inline constexpr std::array<MenuSpec, 6> kMenus = {{
    {"menuFile",
     "File",
     {"actionOpen", "actionCloseFile", "actionNew_Window", "actionQuit", "-", "actionFormat", "actionReload",
      "actionCopy_Frame", "actionSave_Frame"}},
    {"menuTools",
     "Control",
     {"actionPlay", "actionStop", "actionPrev", "actionNext", "actionFirst_Frame", "actionLast_Frame",
      "actionFast_Forward", "actionFast_Backward", "actionGo_to_frame"}},
    {"menuView",
     "View",
     {"menuSize", "actionMaintain_Aspect_Ratio", "actionFullscreen", "actionStay_on_top", "-", "actionTimecode",
      "actionNext_Channel", "actionLoop", "-", "actionNext_Diff_Component", "actionPrevious_Diff_Component"}},
    {"menuSize",
     "Size",
     {"action25", "action33", "action50", "action100", "action200", "actionSmaller", "actionLarger"}},
    {"menuTools_2",
     "Tools",
     {"actionMagnifier", "actionDifference_against", "actionGrid", "actionDeinterlace", "actionBrightness_Contrast_etc",
      "-", "actionNormalize_File_Name", "actionExtract", "actionReverse", "-", "actionSettings"}},
    {"menuHelp", "Help", {"actionOnline_Help", "actionAbout"}},
}};

// Menu-bar order; menuSize lives inside menuView.
inline constexpr std::array<std::string_view, 5> kMenuBar = {"menuFile", "menuTools", "menuView", "menuTools_2",
                                                             "menuHelp"};

} // namespace kavri::ui
