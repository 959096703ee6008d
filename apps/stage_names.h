#pragma once

#include <string>

namespace app {

/// The title that a run of the library announces, as English text for the terminal: the frame around the run's name
/// is dropped, names of the library's own stages are translated and all others stay.
std::string StageName(const std::wstring& title);

}  // namespace app
