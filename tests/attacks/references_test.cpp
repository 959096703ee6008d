// What an input may make a run open: nothing across the network unless that is allowed, nothing outside its folder
// where that is asked for.
#include "platform/raster/references.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "platform/utility/common_fun.h"
#include "runs/check.h"
#include "runs/evaluate.h"
#include "tests/support/run_scene.h"

#ifndef _WIN32
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace {

namespace fs = std::filesystem;

using fusion::RunFailure;
using testing::HasSubstr;

std::string NameOfFolder(const test_support::TemporaryFolder& folder) {
  const fs::path file = CommonFun::ToPath(folder.WidePath("file"));
  const std::u8string name = file.parent_path().filename().u8string();
  return {name.begin(), name.end()};
}

#ifndef _WIN32
/// Counts who comes to a port of this machine, and has nothing for them.
class Listener {
 public:
  Listener() : m_socket(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    m_listens = bind(m_socket, reinterpret_cast<sockaddr*>(&address), size) == 0 && listen(m_socket, 16) == 0 &&
                getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    m_port = ntohs(address.sin_port);
    if (m_listens) m_thread = std::thread([this] { Answer(); });
  }
  ~Listener() {
    m_ends = true;
    if (m_thread.joinable()) m_thread.join();
    close(m_socket);
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  bool Listens() const { return m_listens; }
  std::string Url() const { return "http://127.0.0.1:" + std::to_string(m_port) + "/image.tif"; }
  int Visitors() const { return m_visitors; }

 private:
  void Answer() {
    while (!m_ends) {
      pollfd waiting{m_socket, POLLIN, 0};
      if (poll(&waiting, 1, 20) <= 0) continue;
      const int visitor = accept(m_socket, nullptr, nullptr);
      ++m_visitors;
      const std::string nothing = "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
      char asked[4096];
      static_cast<void>(!read(visitor, asked, sizeof asked));
      static_cast<void>(!write(visitor, nothing.data(), nothing.size()));
      close(visitor);
    }
  }

  int m_socket;
  bool m_listens = false;
  int m_port = 0;
  std::atomic<bool> m_ends = false;
  std::atomic<int> m_visitors = 0;
  std::thread m_thread;
};
#endif

class References : public test_support::RunScene {
 protected:
  fs::path Native(const std::string& name) const { return CommonFun::ToPath(m_folder.WidePath(name)); }
  void Write(const std::string& name, const std::string& text) const { std::ofstream(Native(name)) << text; }

  /// A mosaic of a pan image.
  static std::string Mosaic(const std::string& source, const std::string& more = "", const char* relative = "0") {
    return R"(<VRTDataset rasterXSize="40" rasterYSize="40"><GeoTransform>0,1,0,0,0,-1</GeoTransform>)" + more +
           R"(<VRTRasterBand dataType="UInt16" band="1"><SimpleSource><SourceFilename relativeToVRT=")" + relative +
           "\">" + source + "</SourceFilename><SourceBand>1</SourceBand></SimpleSource></VRTRasterBand></VRTDataset>";
  }

  /// What is said of a pan image; empty where it is fused.
  std::string Said(const std::string& pan, bool network = false, bool confined = false) const {
    auto request = Request("brovey");
    request.pan = m_folder.Path(pan);
    return SaidOf(request, network, confined);
  }
  static std::string SaidOf(fusion::FuseRequest request, bool network, bool confined) {
    request.allowNetwork = network;
    request.confined = confined;
    request.overwrite = true;
    try {
      fusion::Fuse(request);
      return {};
    } catch (const RunFailure& failure) {
      return failure.Sentence();
    }
  }
};

#ifdef _WIN32
TEST_F(References, AcrossTheNetworkAreNotFollowedUnlessThatIsAllowed) {
  GTEST_SKIP() << "the GDAL here reaches no network";
}
#else
TEST_F(References, AcrossTheNetworkAreNotFollowedUnlessThatIsAllowed) {
  const Listener listener;
  if (!listener.Listens()) GTEST_SKIP() << "no port can be opened here";
  const std::string file = "/vsicurl/" + listener.Url();
  const std::string service =
      "<GDAL_WMS><Service name=\"TMS\"><ServerUrl>" + listener.Url() +
      "?${z}/${x}/${y}</ServerUrl></Service><DataWindow><UpperLeftX>0</UpperLeftX><UpperLeftY>0"
      "</UpperLeftY><LowerRightX>40</LowerRightX><LowerRightY>-40</LowerRightY><SizeX>40</SizeX>"
      "<SizeY>40</SizeY></DataWindow><BandsCount>1</BandsCount></GDAL_WMS>";
  std::string escaped = Mosaic(file);
  for (std::size_t at = 0; (at = escaped.find('<', at)) != std::string::npos; at += 4) escaped.replace(at, 1, "&lt;");
  Write("plain.vrt", Mosaic(file));
  Write("streamed.vrt", Mosaic("/vsicurl_streaming/" + listener.Url()));
  Write("zipped.vrt", Mosaic("/vsizip//vsicurl/" + listener.Url()));
  Write("url.vrt", Mosaic(listener.Url()));
  Write("second.vrt", Mosaic("plain.vrt", "", "1"));
  Write("inside.vrt", Mosaic(escaped));
  Write("service.xml", service);
  Write("of_service.vrt", Mosaic("service.xml", "", "1"));
  Write("database.vrt", Mosaic("PG:host=127.0.0.1 port=1"));
  Write("prefixed.vrt", Mosaic("WMS:" + listener.Url()));
  Write("overview.vrt",
        Mosaic("pan.tif",
               R"(<OverviewList>2</OverviewList><Metadata domain="OVERVIEWS"><MDI key="OVERVIEW_FILE">)" + file +
                   "</MDI></Metadata>",
               "1"));
  for (const std::string name : {"described.tif", "shadowed.tif", "masked.tif"})
    fs::copy_file(Native("pan.tif"), Native(name));
  Write("described.tif.aux.xml", R"(<PAMDataset><Metadata domain="OVERVIEWS"><MDI key="OVERVIEW_FILE">)" + file +
                                     "</MDI></Metadata></PAMDataset>");
  Write("shadowed.tif.ovr", Mosaic(file));
  Write("masked.tif.msk", Mosaic(file));
  int refused = 0;
  for (const std::string name : {"plain.vrt", "streamed.vrt", "zipped.vrt", "url.vrt", "second.vrt", "inside.vrt",
                                 "service.xml", "of_service.vrt", "database.vrt", "prefixed.vrt", "overview.vrt",
                                 "described.tif", "shadowed.tif", "masked.tif"}) {
    EXPECT_THAT(Said(name), HasSubstr("--allow-network")) << name;
    ++refused;
  }
  auto area = Request("brovey");
  area.aoi = m_folder.Path("area.vrt");
  Write("area.vrt", "<OGRVRTDataSource><OGRVRTLayer name=\"a\"><SrcDataSource>" + file +
                        "</SrcDataSource></OGRVRTLayer></OGRVRTDataSource>");
  EXPECT_THAT(SaidOf(area, false, false), HasSubstr("--allow-network"));
  fusion::EvaluateRequest evaluate;
  evaluate.pan = evaluate.ms = m_folder.Path("pan.tif");
  evaluate.fused = m_folder.Path("plain.vrt");
  EXPECT_THROW(fusion::Evaluate(evaluate), RunFailure);
  fusion::CheckRequest check;
  check.pan = m_folder.Path("plain.vrt");
  check.ms = m_folder.Path("ms.tif");
  EXPECT_THROW(fusion::Check(check), RunFailure);
  EXPECT_EQ(listener.Visitors(), 0);
  // The same with leave.
  Said("plain.vrt", true);
  EXPECT_GT(listener.Visitors(), 0);
  // What the user names is what the user wants.
  const int before = listener.Visitors();
  auto named = Request("brovey");
  named.pan = "/vsicurl/" + listener.Url() + "2";
  SaidOf(named, false, false);
  EXPECT_GT(listener.Visitors(), before);
  std::cout << "references across the network: " << refused + 3 << " refused\n";
}

#endif

TEST_F(References, AConfinedRunOpensNothingOutsideTheFolder) {
  const test_support::TemporaryFolder elsewhere;
  fs::copy_file(Native("pan.tif"), CommonFun::ToPath(elsewhere.WidePath("secret.tif")));
  fs::create_directory(Native("inner"));
  fs::copy_file(Native("pan.tif"), Native("inner/pan.tif"));
  // Not everywhere can there be links.
  std::error_code noLinks;
  fs::create_symlink(CommonFun::ToPath(elsewhere.WidePath("secret.tif")), Native("link.tif"), noLinks);
  Write("absolute.vrt", Mosaic(elsewhere.Path("secret.tif")));
  Write("upwards.vrt",
        Mosaic("../" + NameOfFolder(m_folder) + "/../" + NameOfFolder(elsewhere) + "/secret.tif", "", "1"));
  Write("linked.vrt", Mosaic("link.tif", "", "1"));
  Write("beside.vrt", Mosaic("pan.tif", "", "1"));
  Write("below.vrt", Mosaic("inner/pan.tif", "", "1"));
  Write("other_kind.asc", "ncols 2\nnrows 2\nxllcorner 0\nyllcorner 0\ncellsize 1\n1 2\n3 4\n");
  for (const std::string name : {"absolute.vrt", "upwards.vrt", "linked.vrt"}) {
    if (noLinks && name == "linked.vrt") continue;
    EXPECT_EQ(Said(name), "") << name;
    EXPECT_THAT(Said(name, true, true), HasSubstr("outside its folder (--confined)")) << name;
  }
  EXPECT_THAT(Said("other_kind.asc", false, true), HasSubstr("--confined forbids"));
  // What it names by itself, wherever that is, and what lies with it, is opened.
  for (const std::string name : {"beside.vrt", "below.vrt", "pan.tif", "link.tif"}) {
    if (noLinks && name == "link.tif") continue;
    EXPECT_EQ(Said(name, false, true), "") << name;
  }
}

TEST_F(References, APipeInAMosaicIsNotWaitedFor) {
#ifdef _WIN32
  GTEST_SKIP() << "no pipes among files here";
#endif
  ASSERT_EQ(test_support::RunShell("mkfifo " + test_support::Quoted(m_folder.Path("pipe"))), 0);
  Write("pipe.vrt", Mosaic("pipe", "", "1"));
  EXPECT_THAT(Said("pipe.vrt"), HasSubstr("which is no regular file"));
}

TEST_F(References, WithoutAPolicyTheClassesOpenAsGdalDoes) {
  EXPECT_EQ(platform::CurrentReferences(), nullptr);
  const platform::ReferenceScope scope({true, false});
  ASSERT_NE(platform::CurrentReferences(), nullptr);
  EXPECT_TRUE(platform::CurrentReferences()->network);
  {
    const platform::ReferenceScope inner({false, true});
    EXPECT_TRUE(platform::CurrentReferences()->confined);
  }
  EXPECT_FALSE(platform::CurrentReferences()->confined);
}

TEST_F(References, NamesTellWhatIsElsewhere) {
  for (const std::string name : {"/vsicurl/http://a/b", "/vsizip//vsis3/b/c.zip/d", "HTTPS://a/b", "wms:x",
                                 "PG:dbname=x", "NETCDF:\"/vsicurl/http://a\":b"}) {
    EXPECT_TRUE(platform::IsElsewhere(name)) << name;
  }
  for (const std::string name :
       {"/data/wms/pan.tif", "c:\\pan.tif", "pan.tif", "GTIFF_DIR:1:pan.tif", "/vsizip/a.zip/b", "/vsimem/a"}) {
    EXPECT_FALSE(platform::IsElsewhere(name)) << name;
  }
}

}  // namespace
