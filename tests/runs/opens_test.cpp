// How often a run opens its inputs: once to plan it, and then as often as its algorithms do.
#include <gtest/gtest.h>

#include <map>

#include "platform/utility/common_fun.h"
#include "runs/methods.h"
#include "tests/support/run_scene.h"

namespace {

struct Opens {
  int pan = 0;
  int ms = 0;
};

class InputOpens : public test_support::RunScene {
 protected:
  Opens Count(const fusion::FuseRequest& request) const {
    Opens opens;
    platform::SetRasterFault([&](platform::RasterOperation operation, const std::wstring& path, int, const CRect&) {
      if (operation != platform::RasterOperation::kOpen) return false;
      opens.pan += path == CommonFun::Utf82U(request.pan);
      opens.ms += path == CommonFun::Utf82U(request.ms);
      return false;
    });
    EXPECT_NO_THROW(fusion::Fuse(request));
    platform::SetRasterFault({});
    return opens;
  }
};

TEST_F(InputOpens, AreOneForPlanningAndThoseOfTheAlgorithms) {
  const std::map<std::string, Opens> most = {
      {"brovey", {2, 2}}, {"multiplicative", {2, 2}}, {"weighted", {2, 2}}, {"ihs", {2, 2}},
      {"pca", {2, 2}},    {"bayesian", {3, 3}},  // the estimator is a run of its own
      {"hpf", {2, 2}},    {"sharpen", {2, 2}},
  };
  for (const auto& method : fusion::Methods()) {
    for (const std::string match : {"auto", "off"}) {
      SCOPED_TRACE(method.name + (' ' + match));
      fusion::FuseRequest request = Request(method.name);
      request.overwrite = true;
      request.spectralMatch = match;
      const Opens opens = Count(request);
      ASSERT_TRUE(most.contains(method.name));
      EXPECT_LE(opens.pan, most.at(method.name).pan);
      EXPECT_LE(opens.ms, most.at(method.name).ms);
      EXPECT_GT(opens.pan, 0) << "counts nothing";
      EXPECT_GT(opens.ms, 0) << "counts nothing";
    }
  }
}

TEST_F(InputOpens, OfAWindowAreNoMore) {
  for (const auto& method : fusion::Methods()) {
    SCOPED_TRACE(method.name);
    fusion::FuseRequest request = Request(method.name);
    request.overwrite = true;
    const Opens whole = Count(request);
    request.window = {4, 6, 20, 16};
    const Opens part = Count(request);
    EXPECT_LE(part.pan, whole.pan);
    EXPECT_LE(part.ms, whole.ms);
  }
}

}  // namespace
