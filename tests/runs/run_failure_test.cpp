// What becomes of exceptions that no run has made a failure of.
#include "runs/run_failure.h"

#include <gmock/gmock.h>

#include <new>

#include "platform/algorithm/base_algorithm.h"
#include "platform/raster/virtual_raster.h"

namespace {

using fusion::ExceptionError;
using fusion::RunFailure;
using testing::HasSubstr;

TEST(RunFailureTest, AFileThatDoesNotOpenIsToldByNameWithItsReason) {
  const RunFailure failure = ExceptionError(platform::OpenFailure(L"some/b\u00e4nd.tif", L"Too many open files"));
  EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kFailed);
  EXPECT_EQ(failure.Type(), ERR_OPEN);
  EXPECT_THAT(failure.Sentence(), HasSubstr("some/b\u00e4nd.tif"));
  EXPECT_THAT(failure.Sentence(), HasSubstr("Too many open files"));
}

TEST(RunFailureTest, AnythingElseIsUnexpected) {
  const RunFailure failure = ExceptionError(std::runtime_error("out of tune"));
  EXPECT_EQ(failure.GetKind(), RunFailure::Kind::kFailed);
  EXPECT_EQ(failure.Type(), ERR_EXCEPTION);
  EXPECT_EQ(failure.Message(), "out of tune");
  EXPECT_NE(ExceptionError(std::bad_alloc()).Message(), std::bad_alloc().what());
}

}  // namespace
