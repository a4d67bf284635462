#pragma once
// The windowed application: a QApplication with the Widgets interface and a controller made
// by the windowed initialiser, whose launch runs once the event loop turns. Returns the
// process's exit status; see the .cpp for how the process ends.

namespace widgets {

int runWindowedApplication(int argc, char** argv);

} // namespace widgets
