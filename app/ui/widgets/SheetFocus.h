#pragma once
// Keeps the keys on a window's sheet: when a window that shows a sheet (a window-modal dialog of
// its own) becomes the active window, the sheet is made active instead, as the platform does
// with a window's sheet. Without it a window manager (or none, on a bare X server) that hands
// the focus back to the window would leave the keyboard with a window that ignores it while the
// sheet waits for Return or Escape.
//
// Main thread only. The filter is a child of the window and lives as long as it.

class QWidget;

namespace sheets {

void keepKeysOnSheets(QWidget* window);

} // namespace sheets
