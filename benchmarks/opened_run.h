#pragma once

#include <memory>
#include <type_traits>
#include <vector>

#include "framework/fusion.h"
#include "highpass/hpf_fusion.h"

namespace bench {

/// An algorithm whose run is opened and then driven from outside, block by block, so that its parts can be timed. The
/// files are opened, the output created and the blocks read by the library's own code.
template <typename Algorithm>
class OpenedRun : public Algorithm {
 public:
  explicit OpenedRun(FusionParam& param) : Algorithm(&param) {}
  ~OpenedRun() override {
    m_dst.Close();
    CRasterSource::DeleteFileW(this->m_param.m_strOutFile);
  }
  OpenedRun(const OpenedRun&) = delete;
  OpenedRun& operator=(const OpenedRun&) = delete;

  /// Everything that comes before the block loop.
  bool Open() {
    std::vector<int> bands;
    CRect rect;
    if (!CFusion::ConfigDstRaster(&this->m_param, &m_pan, &m_ms, &m_dst, &bands, &rect, &this->m_pAOI)) return false;
    this->m_pPanSrc = &m_pan;
    this->m_pMSSrc = &m_ms;
    this->m_pDstSrc = &m_dst;
    if (this->Preproccess() != GIS_SUCCESS) return false;
    m_blocks = std::make_unique<fusion::BlockSet>(this->MakeBlockGrid(), bands, rect.left, rect.top, true);
    return true;
  }

  const fusion::BlockGrid& Grid() const { return m_blocks->grid; }
  int BandCount() const { return this->m_param.m_nOutBandCount; }
  PixelDataType Type() const { return this->m_param.m_eOutDataType; }
  const platform::ValueConversion& Conversion() const { return this->m_conversion; }

  bool Load(const CRect& block) { return this->LoadBlock(*m_blocks, block, {}) == fusion::LoadResult::kReady; }

  /// The public kernel on the block at hand. FreeBlock frees the result.
  /// @param detail the second image of the high-pass family
  void** Fuse(double* detail = nullptr) {
    fusion::BlockSet& b = *m_blocks;
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
  fusion::RowSource Rows() {
    fusion::BlockSet& b = *m_blocks;
    return this->MakeRowSource({b.pan[0], &b.panRect, nullptr, b.ms.Pointers(), static_cast<int>(b.ms.Count()),
                                &b.msRect, Type(), BandCount(), &b.dstBlock, nullptr});
  }

  /// Writes one block of the output.
  bool Write(CRect rect, void** bands) { return CFusion::WriteBlock(&m_dst, BandCount(), &rect, bands) == GIS_SUCCESS; }
  bool CloseOutput() { return m_dst.Close(); }

 private:
  CRasterSource m_pan;
  CRasterSource m_ms;
  CRasterSource m_dst;
  std::unique_ptr<fusion::BlockSet> m_blocks;
};

}  // namespace bench
