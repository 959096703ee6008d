#include "platform/statistics/survey.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "platform/statistics/running_covariance.h"

namespace {

using platform::Survey;
using platform::SurveyFault;
using platform::SurveyPass;

struct Part {
  double value = 0.0;
  std::vector<double> values;
  template <typename Archive>
  void Exchange(Archive& archive) {
    archive(value, values);
  }
};

/// A sum whose bits tell in which order it was taken.
struct Fold {
  double sum = 0.1;
  void operator()(const Part& part) {
    sum = sum / 3.0 + part.value;
    for (const double value : part.values) sum += value;
  }
};

Part PartOf(std::int64_t piece) {
  Part part;
  part.value = 1.0 / (1.0 + static_cast<double>(piece));
  part.values.assign(static_cast<std::size_t>(piece % 3), part.value * 0.7);
  return part;
}

/// What one run makes of a pass.
double Sum(Survey* survey, std::int64_t count, bool* known = nullptr) {
  Fold fold;
  const SurveyPass pass(survey, "pass", count);
  for (const std::int64_t piece : pass.Pieces()) {
    Part part = PartOf(piece);
    pass.Take(piece, part, [&](const Part& taken) { fold(taken); });
  }
  const bool ended = pass.End<Part>([&](const Part& taken) { fold(taken); });
  if (known) *known = ended;
  return fold.sum;
}

/// What is gathered of some rows, as another process reads it.
Survey Gathered(std::int64_t count, std::int64_t first, std::int64_t end, std::int64_t of) {
  Survey survey("images");
  survey.Gather({first, end, of});
  bool known = true;
  Sum(&survey, count, &known);
  EXPECT_FALSE(known);
  return Survey::FromBytes(survey.Found().ToBytes());
}

TEST(Survey, PiecesBelongToOnePartOfTheRows) {
  std::mt19937 random(1);
  for (int i = 0; i < 200; ++i) {
    const auto up = [&](std::int64_t most) { return std::uniform_int_distribution<std::int64_t>(1, most)(random); };
    const std::int64_t count = up(50);
    const std::int64_t of = up(70);
    const std::int64_t cut = up(of) - 1;
    for (std::int64_t piece = 0; piece < count; ++piece) {
      EXPECT_NE((Survey::Rows{0, cut, of}.Holds(piece, count)), (Survey::Rows{cut, of, of}.Holds(piece, count)));
    }
  }
  // By hand: the middle one of three pieces lies in row 3 of ten.
  EXPECT_TRUE((Survey::Rows{3, 4, 10}.Holds(1, 3)));
}

TEST(Survey, MergedInAnyOrderAreWhatOneRunTakes) {
  const double alone = Sum(nullptr, 17);
  Survey parts[] = {Gathered(17, 0, 4, 10), Gathered(17, 4, 5, 10), Gathered(17, 5, 10, 10)};
  const int orders[][4] = {{0, 1, 2, 0}, {2, 1, 0, 1}, {1, 2, 0, 2}};
  for (const auto& order : orders) {
    Survey merged("images");
    for (const int i : order) merged.Merge(parts[i]);
    bool known = false;
    EXPECT_EQ(Sum(&merged, 17, &known), alone);
    EXPECT_TRUE(known);
  }
}

TEST(Survey, ThatLacksAPartIsNoneToUse) {
  Survey merged("images");
  merged.Merge(Gathered(17, 0, 9, 10));
  EXPECT_THROW(Sum(&merged, 17), SurveyFault);
  // Whoever gathers the rest does not look again at what there is.
  merged.Gather({0, 10, 10});
  EXPECT_EQ(SurveyPass(&merged, "pass", 17).Pieces().size(), 1U);
  EXPECT_EQ(merged.Pending(), 1);
}

TEST(Survey, IsCompleteWherePiecesHoldNothing) {
  Survey survey("images");
  survey.Gather({0, 10, 10});
  const SurveyPass pass(&survey, "pass", 3);
  Part part = PartOf(1);
  pass.Take(1, part, [](const Part&) {});
  EXPECT_FALSE(pass.End<Part>([](const Part&) {}));
  const Survey read = Survey::FromBytes(survey.Found().ToBytes());
  Survey merged("images");
  merged.Merge(read);
  int folded = 0;
  EXPECT_TRUE(SurveyPass(&merged, "pass", 3).End<Part>([&](const Part&) { ++folded; }));
  EXPECT_EQ(folded, 1);
}

TEST(Survey, LetsWaitWhatDependsOnSomethingPending) {
  Survey survey("images");
  survey.Gather({0, 10, 10});
  EXPECT_FALSE(survey.IsAwaited());
  const SurveyPass pass(&survey, "second", 5, true);
  EXPECT_TRUE(pass.Pieces().empty());
  EXPECT_FALSE(pass.End<Part>([](const Part&) {}));
  EXPECT_TRUE(survey.IsAwaited());
}

TEST(Survey, OfSomethingElseIsNotMerged) {
  Survey merged("images");
  EXPECT_THROW(merged.Merge(Survey("other images")), SurveyFault);
  merged.Merge(Gathered(17, 0, 4, 10));
  EXPECT_THROW(merged.Merge(Gathered(18, 4, 10, 10)), SurveyFault) << "of another number of pieces";

  Survey other("images");
  other.Gather({0, 10, 10});
  const SurveyPass pass(&other, "pass", 17);
  Part part = PartOf(5);
  pass.Take(0, part, [](const Part&) {});
  EXPECT_THROW(merged.Merge(other.Found()), SurveyFault) << "another part of a piece";
}

TEST(Survey, ThatIsDamagedIsTold) {
  const std::string bytes = Gathered(3, 0, 10, 10).ToBytes();
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::string damaged = bytes;
    damaged[i] = static_cast<char>(damaged[i] ^ 1);
    EXPECT_THROW(Survey::FromBytes(damaged), SurveyFault) << "byte " << i;
    EXPECT_THROW(Survey::FromBytes(bytes.substr(0, i)), SurveyFault) << i << " bytes";
  }
  // A part of a piece that there is not, with a checksum that is right.
  Survey odd("images");
  odd.Gather({0, 10, 10});
  const SurveyPass pass(&odd, "pass", 3);
  Part part;
  pass.Take(3, part, [](const Part&) {});
  EXPECT_THROW(Survey::FromBytes(odd.Found().ToBytes()), SurveyFault);
}

TEST(Survey, ReadsNoFartherThanItsBytes) {
  platform::PartWriter writer;
  std::uint64_t many = std::numeric_limits<std::uint64_t>::max() / 4;
  writer(many);
  std::vector<double> numbers;
  std::vector<Part> parts;
  std::string text;
  EXPECT_THROW(platform::PartReader(writer.bytes)(numbers), SurveyFault);
  EXPECT_THROW(platform::PartReader(writer.bytes)(parts), SurveyFault);
  EXPECT_THROW(platform::PartReader(writer.bytes)(text), SurveyFault);
}

}  // namespace
