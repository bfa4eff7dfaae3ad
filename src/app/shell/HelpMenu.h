#pragma once

class QMenu;
class QWidget;

namespace bc::app {

// The Help menu: a short guide to the window, and the About window with the version that
// certificates name and the licences of the libraries the program is built from.
QMenu* makeHelpMenu(QWidget* parent);

}  // namespace bc::app
