#pragma once

#include <vector>

class CBaseProgress;
class CRasterSource;

namespace platform {

/// Whether a masking raster (CRasterSource::SetMaskNoData) lacks any sample of the bands, counted from 0. Reads until
/// it finds one, and nothing where no band may lack any. The reporter is only asked whether to go on; false after a
/// cancellation and after a failed read, which whoever needs the samples will meet again.
bool HasGaps(const CRasterSource& source, const std::vector<int>& bands, const CBaseProgress& progress);

}  // namespace platform
