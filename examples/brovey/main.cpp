// Fuses two rasters with the Brovey transform: brovey PAN MS OUT
#include <iostream>

#include "fusion_api.h"

namespace {

class Percent : public CBaseProgress {
 public:
  void Start(const std::wstring&, int range) override { m_nRange = range; }
  bool Step(int position, const std::wstring&) override {
    std::cout << '\r' << (m_nRange > 0 ? 100 * position / m_nRange : 0) << " %" << std::flush;
    return true;
  }
  void Finish() override { std::cout << "\rdone\n"; }
  void Error(int type, const std::wstring& message) override {
    std::cerr << "error " << type << ": " << CommonFun::U2Utf8(message) << '\n';
  }

 private:
  int m_nRange = 100;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: brovey PAN MS OUT\n";
    return 2;
  }
  FusionParam param;
  param.m_strAlgName = L"Brovey";
  param.m_strPanFile = CommonFun::M2U(argv[1]);
  param.m_strMSFile = CommonFun::M2U(argv[2]);
  param.m_strOutFile = CommonFun::M2U(argv[3]);
  param.m_eOutDataType = PDT_UINT16;
  if (!CCoordinateAlgorithm::IsNeededProject(param.m_strPanFile, param.m_strMSFile, param.m_bNeedReproject)) {
    std::cerr << "an input does not open\n";
    return 1;
  }

  Percent progress;
  CBroveyFusion fusion(&param);
  fusion.SetProgress(&progress);
  fusion.Process();
  return fusion.Succeeded() ? 0 : 1;
}
