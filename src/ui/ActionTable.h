// The main window's actions and menus as data: object names, texts, shortcuts, checkability, the slot
// each action drives, and the order of the menus. The window creates and wires everything from these
// tables in one place.
#pragma once

#include "ui/frame.h"

#include <array>
#include <string_view>

namespace kavri::ui {

// The window's slot an action drives, with the signal it is connected to.
struct ActionSlot {
    void (frame::*triggered)() = nullptr;            // triggered()
    void (frame::*toggled)(bool) = nullptr;          // toggled(bool)
    void (frame::*triggeredChecked)(bool) = nullptr; // triggered(bool)
};
constexpr ActionSlot onTrigger(void (frame::*slot)()) { return {slot, nullptr, nullptr}; }
constexpr ActionSlot onToggle(void (frame::*slot)(bool)) { return {nullptr, slot, nullptr}; }
constexpr ActionSlot onTriggerChecked(void (frame::*slot)(bool)) { return {nullptr, nullptr, slot}; }

struct ActionSpec {
    std::string_view name; // object name
    std::string_view text;
    std::string_view shortcut; // key-sequence text, empty for none
    bool checkable;
    bool checked;
    std::string_view statusTip;
    std::string_view whatsThis;
    ActionSlot slot;
};

inline constexpr std::array<ActionSpec, 65> kActions = {{
    // clang-format off
    {"actionOpen", "Open File(s) ...", "O", false, false, "", "", onTrigger(&frame::oon_open)},
    {"actionQuit", "Quit", "Esc", false, false, "", "", onTrigger(&frame::oon_close)},
    {"actionPlay", "Play/Pause", "Space", false, false, "", "", onTrigger(&frame::oon_play_pause)},
    {"actionPrev", "Previous Frame", "Left", false, false, "", "", onTrigger(&frame::oon_prev)},
    {"actionNext", "Next Frame", "Right", false, false, "", "", onTrigger(&frame::oon_next)},
    {"actionStop", "Stop", "", false, false, "", "", onTrigger(&frame::oon_stop)},
    {"actionCloseFile", "Close File", "", false, false, "", "", onTrigger(&frame::oon_close_file)},
    {"actionFirst_Frame", "First Frame", "Home", false, false, "", "", onTrigger(&frame::oon_first_frame)},
    {"actionLast_Frame", "Last Frame", "End", false, false, "", "", onTrigger(&frame::oon_last_frame)},
    {"actionTimecode", "Timecode etc.", "T", true, false, "", "", onToggle(&frame::oon_timecode)},
    {"actionDeinterlace", "Deinterlace", "I", true, false, "", "", onToggle(&frame::oon_deinterlace)},
    {"actionFormat", "Format", "Ctrl+F", false, false, "", "", onTrigger(&frame::oon_format)},
    {"actionNext_Channel", "Next Channel", "N", false, false, "Display the next color channel", "", onTrigger(&frame::oon_next_channel)},
    {"actionLoop", "Loop", "", true, true, "", "", onToggle(&frame::oon_loop)},
    {"actionReload", "Reload", "Ctrl+R", false, false, "", "", onTrigger(&frame::oon_reload)},
    {"actionCopy_Frame", "Copy Frame", "Ctrl+C", false, false, "", "", onTrigger(&frame::oon_copy)},
    {"actionSave_Frame", "Save Frame", "Ctrl+Shift+S", false, false, "", "", onTrigger(&frame::oon_save_frame)},
    {"actionGo_to_frame", "Go to frame ...", "Ctrl+G", false, false, "", "", onTrigger(&frame::oon_goto)},
    {"actionDifference_against", "Difference against ...", "D", false, false, "", "", onTrigger(&frame::oon_diff)},
    {"actionFullscreen", "Fullscreen", "", true, false, "", "", onTriggerChecked(&frame::oon_fullscreen)},
    {"actionSize", "Size", "", false, false, "", "", {}},
    {"action25", "25%", "", true, false, "", "", onTrigger(&frame::oon_menu_size)},
    {"action33", "33%", "", true, false, "", "", onTrigger(&frame::oon_menu_size)},
    {"action50", "50%", "", true, false, "", "", onTrigger(&frame::oon_menu_size)},
    {"action100", "100%", "Ctrl+0", true, false, "", "", onTrigger(&frame::oon_menu_size)},
    {"action200", "200%", "", true, false, "", "", onTrigger(&frame::oon_menu_size)},
    {"actionSmaller", "Smaller", "-", false, false, "", "", onTrigger(&frame::oon_menu_size)},
    {"actionLarger", "Larger", "+", false, false, "", "", onTrigger(&frame::oon_menu_size)},
    {"actionMagnifier", "Magnifier", "M", true, false, "Hold Down ALT key for temporary use", "", onTrigger(&frame::oon_magnify)},
    {"actionFast_Forward", "Fast Forward", "Shift+Right", false, false, "", "", onTrigger(&frame::oon_ffw)},
    {"actionFast_Backward", "Fast Backward", "Shift+Left", false, false, "", "", onTrigger(&frame::oon_fbw)},
    {"actionNormalize_File_Name", "Normalize File Name ...", "F", false, false, "", "", onTrigger(&frame::oon_normalize_filename)},
    {"actionOnline_Help", "Online Help", "", false, false, "", "", onTrigger(&frame::oon_online_help)},
    {"actionExtract", "Extract ...", "", false, false, "", "Extract <b>Video portion</b> from this file", onTrigger(&frame::oon_extract)},
    {"actionSettings", "Settings", "Ctrl+S", false, false, "", "", onTrigger(&frame::oon_settings)},
    {"actionMaintain_Aspect_Ratio", "Maintain Aspect Ratio", "A", true, false, "", "", onTrigger(&frame::oon_maintain_ar)},
    {"actionBrightness_Contrast_etc", "Brightness, Contrast etc.", "B", true, false, "", "", onTrigger(&frame::oon_brightcon)},
    {"actionSynchronize", "Synchronize ...", "", false, false, "", "", {}},
    {"actionAbout", "About", "", false, false, "", "", onTrigger(&frame::oon_about)},
    {"actionNew_Window", "New Window ...", "Ctrl+N", false, false, "", "", onTrigger(&frame::oon_new_window)},
    {"actionReverse", "Reverse ...", "", false, false, "", "", onTrigger(&frame::oon_reverse)},
    {"actionGrid", "Grid", "G", true, false, "", "", onToggle(&frame::oon_grid)},
    {"actionNext_Diff_Component", "Next Diff Component", "V", false, false, "", "", onTrigger(&frame::oon_next_diff_component)},
    {"actionPrevious_Diff_Component", "Previous Diff Component", "C", false, false, "", "", onTrigger(&frame::oon_prev_diff_component)},
    {"actionStay_on_top", "Stay on top", "Ctrl+T", true, false, "", "", onTrigger(&frame::oon_stay_on_top)},
    {"actionMetrics", "Metrics Panel", "Ctrl+M", true, false, "PSNR, SSIM and MS-SSIM of every frame of the difference", "", onToggle(&frame::oon_metrics)},
    {"actionExport_Frames", "Export Frames ...", "", false, false, "Write frames as pictures, in another layout or as y4m", "", onTrigger(&frame::oon_export_frames)},
    {"actionScopes", "Scopes Panel", "", true, false, "Histogram, waveform, vectorscope and statistics of the shown frame", "", onToggle(&frame::oon_scopes)},
    {"actionCompare_With", "Compare with ...", "", false, false, "Show a further sequence of the same size beside this one, in lock-step", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Remove", "Remove Compared Sequence ...", "", false, false, "", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Side_by_Side", "Side by Side", "H", false, false, "Two sequences next to each other, three or four in a 2x2 grid", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Single_1", "Single 1", "1", false, false, "", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Single_2", "Single 2", "2", false, false, "", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Single_3", "Single 3", "3", false, false, "", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Single_4", "Single 4", "4", false, false, "", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Wipe", "Wipe", "J", false, false, "The chosen pair split by a vertical line; drag it with the mouse", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Wipe_Horizontal", "Horizontal Wipe", "U", false, false, "The chosen pair split by a horizontal line", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Flicker", "Flicker", "K", false, false, "Toggles between the chosen pair", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Auto_Flicker", "Automatic Flicker", "L", true, false, "", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Difference", "Difference of Pair", "X", false, false, "The difference of the chosen pair, with its PSNR", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Next_Pair", "Next Pair", "P", false, false, "Chooses the next two sequences for wipe, flicker and difference", "", onTrigger(&frame::oon_compare)},
    {"actionZoom_In", "Zoom In", "Ctrl++", false, false, "Free zoom about the mouse", "", onTrigger(&frame::oon_compare)},
    {"actionZoom_Out", "Zoom Out", "Ctrl+-", false, false, "Free zoom about the mouse", "", onTrigger(&frame::oon_compare)},
    {"actionZoom_Fit", "Fit (End Free Zoom)", "Z", false, false, "", "", onTrigger(&frame::oon_compare)},
    {"actionCompare_Swap_Pair", "Swap Pair", "Y", false, false, "", "", onTrigger(&frame::oon_compare)},
    // clang-format on
}};

struct MenuSpec {
    std::string_view name; // object name
    std::string_view title;
    // Action object names in order; "-" is a separator, "menuSize" the Size submenu.
    std::array<std::string_view, 12> items;
};

inline constexpr std::array<MenuSpec, 7> kMenus = {{
    {"menuFile",
     "File",
     {"actionOpen", "actionCloseFile", "actionNew_Window", "actionQuit", "-", "actionFormat", "actionReload",
      "actionCopy_Frame", "actionSave_Frame", "actionExport_Frames", "actionCompare_With", "actionCompare_Remove"}},
    {"menuTools",
     "Control",
     {"actionPlay", "actionStop", "actionPrev", "actionNext", "actionFirst_Frame", "actionLast_Frame",
      "actionFast_Forward", "actionFast_Backward", "actionGo_to_frame"}},
    {"menuView",
     "View",
     {"menuSize", "actionMaintain_Aspect_Ratio", "actionFullscreen", "actionStay_on_top", "-", "actionTimecode",
      "actionNext_Channel", "actionLoop", "-", "actionNext_Diff_Component", "actionPrevious_Diff_Component",
      "menuScopes"}},
    {"menuSize",
     "Size",
     {"action25", "action33", "action50", "action100", "action200", "actionSmaller", "actionLarger"}},
    {"menuTools_2",
     "Tools",
     {"actionMagnifier", "actionDifference_against", "actionGrid", "actionDeinterlace", "actionBrightness_Contrast_etc",
      "-", "actionNormalize_File_Name", "actionExtract", "actionReverse", "-", "actionSettings", "actionMetrics"}},
    {"menuHelp", "Help", {"actionOnline_Help", "actionAbout"}},
    {"menuScopes", "Scopes", {"actionScopes"}},
}};

// Menu-bar order; menuSize lives inside menuView. View > Compare is added while sequences are compared.
inline constexpr std::array<std::string_view, 5> kMenuBar = {"menuFile", "menuTools", "menuView", "menuTools_2",
                                                             "menuHelp"};

} // namespace kavri::ui

namespace kavri::ui {
// View > Compare, shown while two or more sequences are open in the window; "-" is a separator.
inline constexpr std::array<std::string_view, 17> kCompareMenu = {"actionCompare_Side_by_Side",
                                                                  "actionCompare_Single_1",
                                                                  "actionCompare_Single_2",
                                                                  "actionCompare_Single_3",
                                                                  "actionCompare_Single_4",
                                                                  "-",
                                                                  "actionCompare_Wipe",
                                                                  "actionCompare_Wipe_Horizontal",
                                                                  "actionCompare_Flicker",
                                                                  "actionCompare_Auto_Flicker",
                                                                  "actionCompare_Difference",
                                                                  "actionCompare_Next_Pair",
                                                                  "actionCompare_Swap_Pair",
                                                                  "-",
                                                                  "actionZoom_In",
                                                                  "actionZoom_Out",
                                                                  "actionZoom_Fit"};
} // namespace kavri::ui
