#pragma once

#include <string>

#include "platform/system/export.h"

class CRasterSource;

/// Questions about coordinate systems.
class FUSION_API CCoordinateAlgorithm {
 public:
  /// True when the text can be read as a projected or geographic coordinate system.
  static bool IsValidCoordinate(const std::wstring& wkt);
  static bool IsSameCoordinate(const std::wstring& first, const std::wstring& second);
  /// Sets needed where both files have valid coordinate systems that differ. False when a file does not open.
  static bool IsNeededProject(const std::wstring& panFile, const std::wstring& msFile, bool& needed);
  /// The same of open rasters.
  static bool IsNeededProject(const CRasterSource& pan, const CRasterSource& ms);
};
