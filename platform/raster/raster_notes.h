#pragma once

#include <string>
#include <vector>

#include "platform/raster/raster_description.h"

class CRasterSource;

namespace platform {

/// Facts that a raster's file keeps in a domain of metadata of their own, where it can, else the file beside it that
/// GDAL makes (.aux.xml). Some are known only when the last sample is written; room is then kept for them from the
/// beginning, so that a file whose directory stands before its samples need not be written anew.
class RasterNotes {
 public:
  explicit RasterNotes(std::string domain) : m_domain(std::move(domain)) {}

  /// Known from the beginning.
  void Set(const std::string& name, const std::string& value) { m_facts[name] = value; }
  /// Known at the end.
  /// @param room bytes that its value takes at most
  void Await(const std::string& name, std::size_t room);
  /// Says them of a raster just created, before its first sample is written.
  void Apply(CRasterSource& created) const;
  /// Puts what was awaited into a file that is finished and closed; what is not given is empty. Values are plain text
  /// of one line without quotation marks and angle brackets. False where it cannot be written.
  bool Complete(const std::wstring& file, const NamedFacts& late) const;

  /// What an open raster says in a domain.
  static NamedFacts Read(const CRasterSource& raster, const std::string& domain);

 private:
  bool Patch(const std::string& file, const NamedFacts& late) const;

  std::string m_domain;
  NamedFacts m_facts;
  NamedFacts m_awaited;  ///< what stands for them
};

}  // namespace platform
