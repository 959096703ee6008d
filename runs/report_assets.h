#pragma once

#include <string>

namespace fusion {

/// A file of runs/report_assets, as it was when the library was built, with plain ends of lines. Empty for a name that
/// is none of theirs.
std::string ReportAsset(const std::string& name);

}  // namespace fusion
