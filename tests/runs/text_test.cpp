// Words that make a line for a shell, and a line that falls into words.
#include "runs/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "runs/provenance.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

TEST(ShellWords, AreQuotedWhereAShellWouldTakeThemOtherwise) {
  EXPECT_EQ(fusion::ShellWords({"a", "--b=1.5,%2:@x+_/", "c d", "", "it's", "$x;\\"}),
            R"(a --b=1.5,%2:@x+_/ 'c d' '' 'it'\''s' '$x;\')");
}

TEST(ShellWords, AreFoundAgainInTheLine) {
  const std::vector<std::string> words = {"a", "c  d", "", "it's", "'", "\\", "-x=\"y\"", "a\nb", " "};
  EXPECT_THAT(fusion::UnquotedWords(fusion::ShellWords(words)), ElementsAreArray(words));
  EXPECT_THAT(fusion::UnquotedWords(""), IsEmpty());
  EXPECT_THAT(fusion::UnquotedWords("  "), IsEmpty());
  // Of what was made by hand, too.
  EXPECT_THAT(fusion::UnquotedWords(" a  b'c d'e "), ElementsAre("a", "bc de"));
  EXPECT_THAT(fusion::UnquotedWords("'open end"), ElementsAre("open end"));
  EXPECT_THAT(fusion::UnquotedWords("end\\"), ElementsAre("end\\"));
}

TEST(CommandLine, IsQuotedAsTheShellHereTakesIt) {
#ifdef _WIN32
  EXPECT_EQ(fusion::CommandLine({"C:\\a\\b.tif", "C:\\c d\\", "say \"x\\\"", ""}),
            R"(C:\a\b.tif "C:\c d\\" "say \"x\\\"" "")");
#else
  EXPECT_EQ(fusion::CommandLine({"/a/b.tif", "c d", "it's"}), R"(/a/b.tif 'c d' 'it'\''s')");
#endif
}

TEST(RepeatCommand, TakesNothingOfAFileForMoreThanAWord) {
  fusion::Provenance provenance;
  provenance.inputs = {{"PAN", "pan.tif", "", ""}, {"MS", "ms $(x).tif", "", ""}};
  provenance.options = "--method pca; rm x `y` --co 'A=1 2'";
  std::string expected = "fusion fuse pan.tif 'ms $(x).tif' out.tif --method 'pca;' rm x '`y`' --co 'A=1 2'";
#ifdef _WIN32
  std::replace(expected.begin(), expected.end(), '\'', '"');
#endif
  EXPECT_EQ(fusion::RepeatCommand(provenance, "out.tif"), expected);
}

}  // namespace
