#pragma once

#include <memory>
#include <type_traits>
#include <vector>

#include "framework/fusion.h"
#include "framework/row_kernel.h"
#include "framework/run/run.h"
#include "highpass/hpf_fusion.h"

namespace bench {

/// An algorithm whose run is opened and then driven from outside, block by block, so that its parts can be timed. The
/// files are opened, the output created and the blocks read by the library's own code.
template <typename Algorithm>
class OpenedRun : public Algorithm {
 public:
  explicit OpenedRun(FusionParam& param) : Algorithm(&param) {}
  ~OpenedRun() override {
    m_run.reset();
    CRasterSource::DeleteFileW(this->m_param.m_strOutFile);
  }
  OpenedRun(const OpenedRun&) = delete;
  OpenedRun& operator=(const OpenedRun&) = delete;

  /// Everything that comes before the block loop.
  bool Open() {
    this->SetOverlappedIo(true);
    m_variation.configure = [this](CRasterSource& pan, CRasterSource& ms, CRasterSource& dst, std::vector<int>& bands,
                                   CRect& rect) {
      return CFusion::ConfigDstRaster(&this->m_param, &pan, &ms, &dst, &bands, &rect, &this->m_pAOI);
    };
    m_run = std::make_unique<fusion::Run>(*this, m_variation);
    return m_run->Prepare();
  }

  const fusion::BlockGrid& Grid() const { return m_run->Blocks().grid; }
  int BandCount() const { return this->m_param.m_nOutBandCount; }
  PixelDataType Type() const { return this->m_param.m_eOutDataType; }
  const platform::ValueConversion& Conversion() const { return this->m_conversion; }

  bool Load(const CRect& block) { return m_run->Load(m_run->Blocks(), block) == fusion::LoadResult::kReady; }

  /// The public kernel on the block at hand. FreeBlock frees the result.
  /// @param detail the second image of the high-pass family
  void** Fuse(double* detail = nullptr) {
    fusion::BlockSet& b = m_run->Blocks();
    const int count = static_cast<int>(b.ms.Count());
    if constexpr (std::is_base_of_v<CHpfFusion, Algorithm>) {
      return this->AlgorithmProcess(b.pan[0], &b.panRect, detail, b.ms.Pointers(), count, &b.msRect, Type(),
                                    BandCount(), &b.dstBlock, nullptr);
    } else {
      return this->AlgorithmProcess(b.pan[0], &b.panRect, b.ms.Pointers(), count, &b.msRect, Type(), BandCount(),
                                    &b.dstBlock, nullptr);
    }
  }

  /// The block's rows with the multispectral bands resampled, nothing more.
  fusion::RowSource Rows() { return this->MakeRowSource(m_run->Blocks().Block(false, Type(), BandCount())); }

  /// Writes one block of the output.
  bool Write(CRect rect, void** bands) {
    return CFusion::WriteBlock(this->m_pDstSrc, BandCount(), &rect, bands) == GIS_SUCCESS;
  }
  bool CloseOutput() { return this->m_pDstSrc->Close(); }

 private:
  fusion::RunVariation m_variation;
  std::unique_ptr<fusion::Run> m_run;
};

}  // namespace bench
