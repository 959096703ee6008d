#pragma once

#include <string>
#include <vector>

#include "tests/support/command.h"

/// Bad and strange images, all made here: of a good pair, by editing its bytes, by descriptions of mosaics, and by
/// GDAL.
namespace attacks {

/// What a run on an image has to come to.
enum class End {
  kAny,      ///< a picture or a sentence: what a changed byte does, nobody knows
  kRefused,  ///< a sentence
  kFused,    ///< a picture
};

struct Entry {
  std::string name;  ///< of the file
  End end = End::kAny;
};

/// Entries of one kind: the files are made when the kind's turn comes.
struct Corpus {
  std::string kind;
  std::vector<Entry> pans;  ///< to be fused with the good multispectral image
  std::vector<Entry> mss;   ///< with the good pan image
};

/// Makes a file of these bytes.
void Write(const test_support::TemporaryFolder& folder, const std::string& name, const std::string& bytes);

/// Makes pan.tif (64 x 64, 0.5 m) and ms.tif (16 x 16, 2 m, 4 bands) in a folder.
void MakeGoodPair(const test_support::TemporaryFolder& folder);

// Each makes the files of one kind in the folder of the good pair.
Corpus CutShort(const test_support::TemporaryFolder& folder);
Corpus ChangedBytes(const test_support::TemporaryFolder& folder);
Corpus Sizes(const test_support::TemporaryFolder& folder);
Corpus GeoTransforms(const test_support::TemporaryFolder& folder);
Corpus CoordinateSystems(const test_support::TemporaryFolder& folder);
Corpus SampleTypes(const test_support::TemporaryFolder& folder);
Corpus Masks(const test_support::TemporaryFolder& folder);
Corpus Mosaics(const test_support::TemporaryFolder& folder);

}  // namespace attacks
