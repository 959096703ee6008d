#pragma once

#include <string>
#include <vector>

#include "platform/system/export.h"
#include "runs/model_facts.h"
#include "runs/run_failure.h"
#include "runs/run_observer.h"

namespace fusion {

/// An input of a run, as the output tells of it.
struct ProvenanceInput {
  std::string role;    ///< PAN, MS, AOI; further ones of a kind have numbers: MS_2
  std::string path;    ///< as it was given
  std::string size;    ///< "1024x1024, 1 band of uint16"; empty where it is no raster
  std::string header;  ///< SHA-256 of the file's first 65536 bytes and its last 65536 bytes behind them; or empty
};

/// How an output was made, as it tells itself in its metadata (domain FUSION). Texts are UTF-8.
struct Provenance {
  std::string version;  ///< of the library
  std::string time;     ///< when the run began, or what SOURCE_DATE_EPOCH said: 2024-05-17T10:00:00Z
  std::string method;
  std::string options;  ///< the command's, as a shell takes them
  std::string guards;   ///< those in effect, with commas
  std::string output;   ///< "1024x1024, 4 bands of uint16"
  std::vector<ProvenanceInput> inputs;
  ModelFacts model;
  std::vector<std::string> checksums;  ///< CRC-32C of each band's samples, row by row, little-endian: eight digits
};

/// Throws RunFailure: of wrong usage where the file tells nothing.
FUSION_API Provenance ReadProvenance(const std::string& file);
/// The command that made an output, for a shell, with the file as what it writes. Empty where it was made of arrays.
FUSION_API std::string RepeatCommand(const Provenance& provenance, const std::string& file);
/// Reads all samples of an output and compares them with its checksums. Throws RunFailure where they are not those that
/// were written, and of wrong usage where the file has no checksums.
/// @param observer not owned; null for nobody
FUSION_API Provenance VerifyOutput(const std::string& file, RunObserver* observer = nullptr);

}  // namespace fusion
