#pragma once

#include <memory>
#include <string>
#include <vector>

#include "evaluation/evaluation_param.h"
#include "framework/shared_array.h"
#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/reproject.h"

namespace fusion {
class JointEvaluate;
class MsCells;
}  // namespace fusion

/// Base of the evaluations: walks the fused image in blocks, over one or more passes, and hands each block with the pan
/// and multispectral pixels under it to the metric.
///
/// Use: fill a record, create a metric (CFusEvaluateAlgorithmFactory), call Process once, read its result arrays. They
/// have an entry per band pair unless said otherwise. Nothing sets the step counter back, so a second Process of a
/// metric of several passes is error type 6.
class FUSION_API CFusionEvaluate : public CBaseAlgorithm {
 public:
  explicit CFusionEvaluate(FusionEvaluateParam* param);
  ~CFusionEvaluate() override;
  /// Copies share the arrays.
  CFusionEvaluate(const CFusionEvaluate&);
  CFusionEvaluate& operator=(const CFusionEvaluate&);

  void Process() override;
  virtual GISError Preproccess();
  virtual bool OpenRasterSource(FusionEvaluateParam* param, CRasterSource* pan, CRasterSource* mul,
                                CRasterSource* fusion, std::vector<int>* mulBands, std::vector<int>* fusionBands);
  /// The metric's work on one block. Buffers are row-major, each over its own rectangle, and only to be read: rows of
  /// the multispectral ones may serve the next block too.
  virtual void FusionEvaluate(double* panBuf, CRect* panRect, double** mulBufs, int mulCount, CRect* mulRect,
                              double** fusionBufs, int fusionCount, CRect* blockRect) = 0;
  virtual void GetBlockSize(int& xSize, int& ySize);
  virtual bool GetReadBufferRect(CRect* blockRect, CRect* readRect);
  virtual GISError StartBolckProcess();
  virtual void EndBolckProcess();
  virtual void SetProcessStep();
  /// Whether the pass that just ended was the last.
  virtual bool IsFinished(int step) = 0;
  virtual void EndProccess();

  /// The cell of a buffer over rect for a position in image coordinates, rounded and clamped.
  void ImgXY2BufXY(double x, double y, CRect* rect, int& col, int& row);

 protected:
  bool HasEqualLists() const { return m_param.m_vecMulBands.size() == m_param.m_vecFusionBands.size(); }
  std::size_t PairCount() const { return m_param.m_vecFusionBands.size(); }
  platform::NoDataRule PanNoData() const;
  platform::NoDataRule MulNoData(std::size_t i) const;
  platform::NoDataRule FusionNoData(std::size_t i) const;
  /// Cells of the multispectral buffers; see MsCells for the shift.
  fusion::MsCells& Cells(int reprojectedShift);

  FusionEvaluateParam m_param;
  CReproject* m_pReproject = nullptr;
  CRasterSource* m_pPanSource = nullptr;  ///< open only while Process runs, like the next two
  CRasterSource* m_pMulSource = nullptr;
  CRasterSource* m_pFusionSource = nullptr;
  double m_dPanMax = 0.0;
  double m_dPanMin = 0.0;
  SharedArray m_pMulMax;
  SharedArray m_pMulMin;
  SharedArray m_pFusionMax;
  SharedArray m_pFusionMin;
  std::int32_t m_nProcessStep = 0;  ///< number of the pass at hand, from 1
  /// Whether what is measured does not depend on how its rows lie in blocks, so that low blocks of whole rows may come
  /// together where the record bounds them.
  bool m_joinsBlocks = false;

 private:
  friend class fusion::JointEvaluate;
  struct Run;
  bool Prepare(Run& run);
  bool BuildReprojection(Run& run);
  void WalkPasses(Run& run);
  bool EvaluateBlock(Run& run, CRect& block, CRect& read);
  void ReadAhead(Run& run, const CRect& next);
  CRect OnPan(const CRect& block) const;
  /// Whether one of the blocks that were joined to this one has no multispectral pixels, which fails it.
  bool HasUncovered(const Run& run, const CRect& block);
  std::wstring Title() const;

  std::shared_ptr<fusion::MsCells> m_cells;  ///< made at first use, null between runs
};
