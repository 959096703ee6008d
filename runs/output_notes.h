#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/raster/raster_notes.h"
#include "platform/raster/raster_types.h"
#include "runs/model_facts.h"
#include "runs/provenance.h"

namespace platform {
class WrittenRaster;
}

namespace fusion {

class FuseInputs;
struct CheckedRequest;
struct FuseRequest;

/// The domain in which outputs tell how they were made.
inline constexpr char kNotesDomain[] = "FUSION";

/// In the place of a path: the samples of a caller's array, which no other run can name.
inline constexpr char kInMemory[] = "an array in memory";

/// What a run says of itself in its output.
class OutputNotes {
 public:
  /// What is known before the run.
  OutputNotes(const FuseRequest& request, const CheckedRequest& checked, const FuseInputs& inputs);

  std::shared_ptr<const platform::RasterNotes> Notes() const { return m_notes; }
  /// The rest, into the finished file. False where it cannot be written.
  bool Complete(const std::wstring& file, const ModelFacts& model, const std::vector<std::string>& checksums) const;

 private:
  std::shared_ptr<platform::RasterNotes> m_notes;
  std::size_t m_modelRoom = 0;
};

/// "1024x1024, 4 bands of uint16"
std::string SizeText(const CRasterSource& raster);
/// Whether what is read from a file may differ from what was written to it by its format and these creation options.
bool MayLoseValues(RasterDataFormat format, const std::vector<std::string>& creationOptions);

/// The text that tells a model, and back. Beyond so many bytes the longest facts are left out.
std::string TextOf(ModelFacts model, std::size_t room);
ModelFacts ModelOf(const std::string& text);

}  // namespace fusion
