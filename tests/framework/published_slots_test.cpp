// The places of the virtual operations are published: programs built with another compiler call by them.
#include <gtest/gtest.h>

#include <bit>
#include <cstddef>

#include "evaluation/fusion_evaluate.h"
#include "highpass/bayes_pan_sharpening_fusion.h"
#include "highpass/hpf_fusion_process_alg.h"
#include "highpass/simple_pan_sharpening_fusion.h"

#ifdef __GXX_ABI_VERSION

namespace {

/// The slot of a virtual operation, counting the destructor as one. The Itanium ABI keeps 1 plus the offset into the
/// table in the pointer to a virtual member, and gives a destructor two entries.
template <typename Member>
std::ptrdiff_t SlotOf(Member member) {
  struct Pointer {
    std::ptrdiff_t code;
    std::ptrdiff_t adjustment;
  };
  static_assert(sizeof(Member) == sizeof(Pointer));
  const auto pointer = std::bit_cast<Pointer>(member);
  EXPECT_EQ(pointer.code & 1, 1) << "not virtual";
  return (pointer.code - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)) - 1;
}

using Sources = CRasterSource*;
using Configure3 = bool (CHpfFusion::*)(FusionParam*, Sources, Sources, Sources, std::vector<int>*, CRect*,
                                        CRasterAOI**);
using Configure4 = bool (CHpfFusion::*)(FusionParam*, Sources, Sources, Sources, Sources, std::vector<int>*, CRect*,
                                        CRasterAOI**);
using Plain = void** (CHpfFusion::*)(double*, CRect*, double**, int, CRect*, PixelDataType, int, CRect*, CRasterAOI*);
using Detailed = void** (CHpfFusion::*)(double*, CRect*, double*, double**, int, CRect*, PixelDataType, int, CRect*,
                                        CRasterAOI*);

TEST(PublishedSlots, OfFusions) {
  EXPECT_EQ(SlotOf(&CFusion::Process), 1);
  EXPECT_EQ(SlotOf(&CFusion::ConfigRasterAOI), 2);
  EXPECT_EQ(SlotOf(&CFusion::ConfigDstRaster), 3);
  EXPECT_EQ(SlotOf(&CFusion::Preproccess), 4);
  EXPECT_EQ(SlotOf(&CFusion::GetBlockSize), 5);
  EXPECT_EQ(SlotOf(&CFusion::GetReadBufferRect), 6);
  EXPECT_EQ(SlotOf(&CFusion::StartBolckProcess), 7);
  EXPECT_EQ(SlotOf(&CFusion::AlgorithmProcess), 8);
  EXPECT_EQ(SlotOf(&CFusion::EndBolckProcess), 9);
  EXPECT_EQ(SlotOf(&CFusion::EndProccess), 10);
}

TEST(PublishedSlots, OfHighPassFusion) {
  EXPECT_EQ(SlotOf(&CHpfFusion::Process), 1);
  EXPECT_EQ(SlotOf(&CHpfFusion::ConfigRasterAOI), 2);
  EXPECT_EQ(SlotOf(static_cast<Configure3>(&CHpfFusion::ConfigDstRaster)), 3);
  EXPECT_EQ(SlotOf(&CHpfFusion::Preproccess), 4);
  EXPECT_EQ(SlotOf(&CHpfFusion::GetBlockSize), 5);
  EXPECT_EQ(SlotOf(&CHpfFusion::GetReadBufferRect), 6);
  EXPECT_EQ(SlotOf(&CHpfFusion::StartBolckProcess), 7);
  EXPECT_EQ(SlotOf(static_cast<Plain>(&CHpfFusion::AlgorithmProcess)), 8);
  EXPECT_EQ(SlotOf(&CHpfFusion::EndBolckProcess), 9);
  EXPECT_EQ(SlotOf(&CHpfFusion::EndProccess), 10);
  EXPECT_EQ(SlotOf(static_cast<Configure4>(&CHpfFusion::ConfigDstRaster)), 11);
  EXPECT_EQ(SlotOf(static_cast<Detailed>(&CHpfFusion::AlgorithmProcess)), 12);
}

TEST(PublishedSlots, OfTheFusionsThatOverrideThem) {
  using Simple = CSimplePanSharpeningFusion;
  EXPECT_EQ(SlotOf(&Simple::Preproccess), 4);
  EXPECT_EQ(SlotOf(&Simple::StartBolckProcess), 7);
  EXPECT_EQ(SlotOf(static_cast<void** (Simple::*)(double*, CRect*, double**, int, CRect*, PixelDataType, int, CRect*,
                                                  CRasterAOI*)>(&Simple::AlgorithmProcess)),
            8);
  EXPECT_EQ(SlotOf(static_cast<void** (Simple::*)(double*, CRect*, double*, double**, int, CRect*, PixelDataType, int,
                                                  CRect*, CRasterAOI*)>(&Simple::AlgorithmProcess)),
            12);
  EXPECT_EQ(SlotOf(&BayesPanSharpeningFusion::Preproccess), 4);
  EXPECT_EQ(SlotOf(&BayesPanSharpeningFusion::StartBolckProcess), 7);
  EXPECT_EQ(SlotOf(&BayesPanSharpeningFusion::AlgorithmProcess), 8);
}

TEST(PublishedSlots, OfTheHighPassPipeline) {
  EXPECT_EQ(SlotOf(&CHpfFusionProcessAlg::Process), 1);
  EXPECT_EQ(SlotOf(&CHpfFusionProcessAlg::ConfigRasterAOI), 2);
  EXPECT_EQ(SlotOf(&CHpfFusionProcessAlg::Preproccess), 3);
}

TEST(PublishedSlots, OfEvaluations) {
  EXPECT_EQ(SlotOf(&CFusionEvaluate::Process), 1);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::ConfigRasterAOI), 2);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::Preproccess), 3);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::OpenRasterSource), 4);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::FusionEvaluate), 5);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::GetBlockSize), 6);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::GetReadBufferRect), 7);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::StartBolckProcess), 8);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::EndBolckProcess), 9);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::SetProcessStep), 10);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::IsFinished), 11);
  EXPECT_EQ(SlotOf(&CFusionEvaluate::EndProccess), 12);
}

}  // namespace

#endif
