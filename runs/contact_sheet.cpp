#include "runs/contact_sheet.h"

#include <algorithm>

#include "platform/utility/common_fun.h"
#include "runs/letters.h"
#include "runs/picture.h"

namespace fusion {
namespace {

constexpr int kGap = 6;
constexpr int kTitle = kLetterHeight + 6;
constexpr int kMostColumns = 4;

}  // namespace

ContactSheet::ContactSheet(const std::string& file, bool overwrite, const std::vector<std::wstring>& inputs)
    : m_file(CommonFun::Utf82U(file)), m_pending(m_file, overwrite, inputs) {
  Picture::CheckFile("--picture", m_file, m_pending);
}

ContactSheet::Crop ContactSheet::CropOf(const std::string& name, const quality::Image& image,
                                        const std::vector<int>& bands) {
  Crop crop{name, {}};
  crop.image.width = std::min(kCrop, image.width);
  crop.image.height = std::min(kCrop, image.height);
  const int left = (image.width - crop.image.width) / 2;
  const int top = (image.height - crop.image.height) / 2;
  for (const int band : bands) {
    const auto& values = image.bands[static_cast<std::size_t>(band)];
    std::vector<double> part;
    for (int y = top; y < top + crop.image.height; ++y) {
      const auto row = values.begin() + static_cast<std::ptrdiff_t>(y) * image.width + left;
      part.insert(part.end(), row, row + crop.image.width);
    }
    crop.image.bands.push_back(std::move(part));
  }
  return crop;
}

void ContactSheet::AddPan(const std::string& name, const quality::Image& pan) {
  m_crops.push_back(CropOf(name, pan, {0}));
}

void ContactSheet::AddColour(const std::string& name, const quality::Image& image, const std::vector<int>& rgb) {
  m_crops.push_back(CropOf(name, image, rgb));
}

void ContactSheet::Write() {
  if (m_crops.empty()) return;
  const std::vector<int> colours = {0, 1, 2};
  std::vector<Stretch> stretches;
  for (const Crop& crop : m_crops) {
    if (crop.image.bands.size() > 1 && stretches.empty()) stretches = StretchesOf(crop.image, colours);
  }
  // Names may be wider than small images.
  int cellWidth = m_crops[0].image.width + kGap;
  for (const Crop& crop : m_crops) {
    cellWidth = std::max(cellWidth, kLetterStep * static_cast<int>(crop.name.size()) + kGap);
  }
  const int cellHeight = m_crops[0].image.height + kTitle + kGap;
  const int columns = std::min(kMostColumns, static_cast<int>(m_crops.size()));
  const int rows = (static_cast<int>(m_crops.size()) + columns - 1) / columns;
  Picture picture(columns * cellWidth + kGap, rows * cellHeight + kGap);
  for (std::size_t i = 0; i < m_crops.size(); ++i) {
    const quality::Image& image = m_crops[i].image;
    const int left = kGap + static_cast<int>(i) % columns * cellWidth;
    const int top = kGap + static_cast<int>(i) / columns * cellHeight;
    picture.Write(m_crops[i].name, left, top);
    const bool grey = image.bands.size() == 1;
    picture.Draw(image, grey ? std::vector<int>{0} : colours, grey ? StretchesOf(image, {0}) : stretches, left,
                 top + kTitle);
  }
  picture.Save(m_file, m_pending);
}

}  // namespace fusion
