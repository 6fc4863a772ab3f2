// Whether a window can be shown: the display the environment names accepts a connection.
#pragma once

namespace cli {

// The window toolkit aborts the process on a display that is named but not there.
bool displayReachable();

}  // namespace cli
