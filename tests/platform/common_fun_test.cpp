#include "platform/utility/common_fun.h"

#include <cpl_vsi.h>
#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <set>

#ifdef _WIN32
#include <windows.h>
#endif

#include "tests/support/test_raster.h"

namespace {

namespace fs = std::filesystem;

/// A folder of its own, removed afterwards.
class Files : public testing::Test {
 protected:
  std::wstring Path(const std::wstring& name) const {
    const std::u8string folder = m_folder.u8string();
    return CommonFun::Utf82U(std::string(folder.begin(), folder.end())) + L"/" + name;
  }
  std::wstring Touch(const std::wstring& name) const {
    const std::string utf8 = CommonFun::U2Utf8(Path(name));
    std::ofstream(fs::path(std::u8string(utf8.begin(), utf8.end()))) << "x";
    return Path(name);
  }

  test_support::TempFolder m_temporary;
  fs::path m_folder = m_temporary.Root();
};

TEST(TextConversion, NarrowTextIsUtf8WhateverTheLocale) {
#ifdef _WIN32
  GTEST_SKIP() << "narrow text is in the active code page here";
#endif
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const char* locale : {"C", "C.UTF-8", "POSIX"}) {
    std::setlocale(LC_ALL, locale);
    EXPECT_EQ(CommonFun::M2U("/data/\xe5\xbd\xb1\xe5\x83\x8f.tif"), L"/data/影像.tif");
  }
  std::setlocale(LC_ALL, before.c_str());
}

#ifdef _WIN32
TEST(TextConversion, NarrowTextIsInTheActiveCodePage) {
  switch (GetACP()) {
    case 936:
      EXPECT_EQ(CommonFun::M2U("D:\\\xD3\xB0\xCF\xF1.tif"), L"D:\\影像.tif");
      break;
    case 1252:
      EXPECT_EQ(CommonFun::M2U("D:\\t\xE9st\x80.tif"), L"D:\\tést€.tif");
      break;
    default:
      GTEST_SKIP() << "no text is known in code page " << GetACP();
  }
}
#endif

TEST(TextConversion, NullAndEmptyGiveEmpty) {
  EXPECT_EQ(CommonFun::M2U(nullptr), L"");
  EXPECT_EQ(CommonFun::M2U(""), L"");
  EXPECT_EQ(CommonFun::U2Utf8(L""), "");
}

TEST(TextConversion, EveryLengthOfSequenceGoesBothWays) {
  const std::string utf8 = "A\xc3\xa9\xe4\xb8\xad\xf0\x9f\x98\x80z";
  const std::wstring wide = L"A\u00e9\u4e2d\U0001F600z";
  EXPECT_EQ(CommonFun::Utf82U(utf8), wide);
  EXPECT_EQ(CommonFun::U2Utf8(wide), utf8);
}

TEST(TextConversion, SurrogatePairIsOneCharacterOfUtf8) {
  const std::wstring pair = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
  EXPECT_EQ(CommonFun::U2Utf8(pair), "\xf0\x9f\x98\x80");
  EXPECT_EQ(CommonFun::U2Utf8(pair.substr(0, 1)), "\xef\xbf\xbd");
  EXPECT_EQ(CommonFun::U2Utf8(pair.substr(1) + L"a"),
            "\xef\xbf\xbd"
            "a");
}

TEST(TextConversion, InvalidBytesBecomeReplacementCharacters) {
  EXPECT_EQ(CommonFun::Utf82U("a\xff"
                              "b"),
            L"a\uFFFDb");
  EXPECT_EQ(CommonFun::Utf82U("\xe4\xb8"), L"\uFFFD\uFFFD") << "cut short";
  EXPECT_EQ(CommonFun::Utf82U("\xc0\xaf"), L"\uFFFD\uFFFD") << "overlong";
  EXPECT_EQ(CommonFun::Utf82U("\xe0\x80\xaf"), L"\uFFFD\uFFFD\uFFFD") << "overlong in three bytes";
  EXPECT_EQ(CommonFun::Utf82U("\xed\xa0\x80"), L"\uFFFD\uFFFD\uFFFD") << "surrogate";
  EXPECT_EQ(CommonFun::Utf82U("\xf4\x90\x80\x80"), L"\uFFFD\uFFFD\uFFFD\uFFFD") << "beyond the last character";
}

TEST(ExtensionName, IsWhatFollowsTheLastDotOfTheName) {
  EXPECT_EQ(CommonFun::GetExtensionName(L"/a/b.tif"), L"tif");
  EXPECT_EQ(CommonFun::GetExtensionName(L"b.tar.gz"), L"gz");
  EXPECT_EQ(CommonFun::GetExtensionName(L"/a.dir/b"), L"");
  EXPECT_EQ(CommonFun::GetExtensionName(L"C:\\a.dir\\b"), L"");
  EXPECT_EQ(CommonFun::GetExtensionName(L"/a/.hidden"), L"");
  EXPECT_EQ(CommonFun::GetExtensionName(L"b."), L"");
  EXPECT_EQ(CommonFun::GetExtensionName(L""), L"");
  EXPECT_EQ(CommonFun::GetExtensionName(L"b.TIF"), L"TIF");
}

TEST_F(Files, TemporaryFileLiesBesideThePathWithItsExtension) {
  const std::wstring path = Path(L"融合.tif");
  std::set<std::wstring> names;
  for (int i = 0; i < 20; ++i) {
    const std::wstring name = CommonFun::GetTempFilePath(path);
    ASSERT_FALSE(name.empty());
    EXPECT_EQ(name.find(Path(L"")), 0u);
    EXPECT_EQ(name.find(L'/', Path(L"").size()), std::wstring::npos);
    EXPECT_EQ(CommonFun::GetExtensionName(name), L"tif");
    EXPECT_NE(name, path);
    EXPECT_TRUE(CommonFun::IsSameFile(name, name)) << "it exists";
    names.insert(name);
  }
  EXPECT_EQ(names.size(), 20u);
}

TEST_F(Files, TemporaryFileOfANameWithoutExtensionHasNone) {
  EXPECT_EQ(CommonFun::GetExtensionName(CommonFun::GetTempFilePath(Path(L"out"))), L"");
}

TEST_F(Files, TemporaryFileOfALongNameIsMade) {
  EXPECT_FALSE(CommonFun::GetTempFilePath(Path(std::wstring(250, L'n') + L".tif")).empty());
}

TEST_F(Files, NoTemporaryFileWhereNoneCanBeMade) {
  EXPECT_EQ(CommonFun::GetTempFilePath(Path(L"missing/out.tif")), L"");
  EXPECT_EQ(CommonFun::GetTempFilePath(L""), L"");
}

TEST(MemoryFiles, TemporaryFileIsMadeInTheMemoryFileSystem) {
  const std::wstring name = CommonFun::GetTempFilePath(L"/vsimem/folder/out.img");
  EXPECT_EQ(name.find(L"/vsimem/folder/"), 0u);
  EXPECT_EQ(CommonFun::GetExtensionName(name), L"img");
  VSIStatBufL status;
  EXPECT_EQ(VSIStatL(CommonFun::U2Utf8(name).c_str(), &status), 0);
  EXPECT_TRUE(CommonFun::IsSameFile(name, L"/vsimem/other/../folder/" + name.substr(15)));
  VSIUnlink(CommonFun::U2Utf8(name).c_str());
  EXPECT_FALSE(CommonFun::IsSameFile(name, name)) << "it is gone";
}

TEST_F(Files, SpellingsAndLinksOfOneFileAreTheSame) {
  const std::wstring a = Touch(L"a.tif");
  const std::wstring b = Touch(L"b.tif");
  EXPECT_TRUE(CommonFun::IsSameFile(a, a));
  EXPECT_TRUE(CommonFun::IsSameFile(a, Path(L"./a.tif")));
  EXPECT_TRUE(CommonFun::IsSameFile(a, Path(L"../") + m_folder.filename().wstring() + L"/a.tif"));
  EXPECT_FALSE(CommonFun::IsSameFile(a, b));
  EXPECT_FALSE(CommonFun::IsSameFile(a, Path(L"missing.tif")));
  EXPECT_FALSE(CommonFun::IsSameFile(L"", L""));
  EXPECT_FALSE(CommonFun::IsSameFile(a, L"/vsimem/a.tif"));
  std::error_code error;
  fs::create_symlink(m_folder / "a.tif", m_folder / "link.tif", error);
  if (!error) {
    EXPECT_TRUE(CommonFun::IsSameFile(a, Path(L"link.tif")));
  }
  fs::create_hard_link(m_folder / "a.tif", m_folder / "hard.tif", error);
  if (!error) {
    EXPECT_TRUE(CommonFun::IsSameFile(a, Path(L"hard.tif")));
  }
}

}  // namespace
