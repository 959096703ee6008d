#include "platform/raster/file_digest.h"

#include <cpl_vsi.h>

#include <algorithm>
#include <vector>

#include "platform/raster/gdal_access.h"
#include "platform/utility/checksums.h"
#include "platform/utility/common_fun.h"

namespace platform {

std::string HeaderDigest(const std::wstring& path) {
  constexpr vsi_l_offset kPart = 65536;
  const GdalErrors quiet;
  const std::string name = CommonFun::U2Utf8(path);
  // What flows by cannot be read twice.
  VSIStatBufL status;
  if (VSIStatExL(name.c_str(), &status, VSI_STAT_EXISTS_FLAG | VSI_STAT_NATURE_FLAG | VSI_STAT_SIZE_FLAG) != 0 ||
      !VSI_ISREG(status.st_mode)) {
    return {};
  }
  VSILFILE* file = VSIFOpenL(name.c_str(), "rb");
  if (!file) return {};
  const auto size = static_cast<vsi_l_offset>(status.st_size);
  const vsi_l_offset part = std::min(size, kPart);
  std::vector<unsigned char> bytes(static_cast<std::size_t>(part));
  Sha256 digest;
  bool ok = true;
  for (const vsi_l_offset start : {vsi_l_offset{0}, size - part}) {
    ok = ok && VSIFSeekL(file, start, SEEK_SET) == 0 && VSIFReadL(bytes.data(), 1, bytes.size(), file) == bytes.size();
    digest.Add(bytes.data(), bytes.size());
  }
  VSIFCloseL(file);
  return ok ? digest.Text() : std::string();
}

}  // namespace platform
