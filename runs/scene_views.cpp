#include "runs/scene_views.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "framework/messages.h"
#include "framework/overlap.h"
#include "platform/algorithm/base_algorithm.h"
#include "runs/failures.h"
#include "runs/picture.h"
#include "runs/reduced_image.h"

namespace fusion {

SceneViews::SceneViews(const PairNames& names, std::function<void()> goOn)
    : m_pair(names, m_notices), m_goOn(std::move(goOn)), m_colours(NaturalColours(m_pair.Described())) {
  bool reprojects = false;
  FindOverlap(m_pair.Pan(), m_pair.Ms(), reprojects);
  m_grid = std::make_unique<PanGrid>(m_pair.Ms(), m_pair.Pan());
  if (reprojects && !m_grid->Reproject(m_pair.Ms(), m_pair.Pan())) {
    throw RunError(ERR_REPROJECT, messages::kReprojectFailed);
  }
}

quality::Image SceneViews::Pan(const CRect& rect, int width, int height, const Row& row) const {
  return ReducedImage(m_pair.Pan(), {m_pair.PanBand()}, rect, width, height,
                      [&](int y, const std::vector<double>& samples) {
                        m_goOn();
                        if (row) row(y, samples);
                      });
}

quality::Image SceneViews::Of(const CRasterSource& image, const std::vector<int>& bands, const CRect& rect, int width,
                              int height) const {
  return ReducedImage(image, bands, rect, width, height, [this](int, const std::vector<double>&) { m_goOn(); });
}

void SceneViews::Place(const CRect& rect, int width, int height, std::vector<double>& x, std::vector<double>& y) const {
  // Of the pixel under the centre, and how far beside its own centre that lies.
  const auto under = [](int i, int count, int first, int size, double& beside) {
    const double at = (i + 0.5) * size / count;
    const int pixel = std::min(static_cast<int>(at), size - 1);
    beside = at - pixel - 0.5;
    return first + pixel;
  };
  double right = 0.0;
  double down = 0.0;
  for (int j = 0; j < height; ++j) {
    const int r = under(j, height, rect.top, rect.Height(), down);
    for (int i = 0; i < width; ++i) {
      const int c = under(i, width, rect.left, rect.Width(), right);
      const PanPositions at = m_grid->Positions({c, r, c + 1, r + 1});
      x.push_back(at.x[0] + right * m_grid->RatioX());
      y.push_back(at.y[0] + down * m_grid->RatioY());
    }
  }
}

quality::Image SceneViews::Ms(const CRect& rect, int width, int height) const {
  std::vector<double> x;
  std::vector<double> y;
  Place(rect, width, height, x, y);
  const CRasterSource& ms = m_pair.Ms();
  const auto range = [](const std::vector<double>& places, int size) {
    double first = size;
    double last = -1.0;
    for (const double at : places) {
      if (!(at >= -1.0 && at <= size)) continue;
      first = std::min(first, at);
      last = std::max(last, at);
    }
    constexpr int kBeside = 2;
    return std::pair(std::max(static_cast<int>(std::floor(first)) - kBeside, 0),
                     std::min(static_cast<int>(std::floor(last)) + kBeside + 1, size));
  };
  const auto [left, right] = range(x, ms.GetWidth());
  const auto [top, bottom] = range(y, ms.GetHeight());
  quality::Image image;
  image.width = width;
  image.height = height;
  image.bands.assign(m_colours.size(),
                     std::vector<double>(image.PixelCount(), std::numeric_limits<double>::quiet_NaN()));
  if (left >= right || top >= bottom) return image;
  // Averaged to about the view's pixels first.
  const double ownX = std::max(1.0, m_grid->RatioX() * rect.Width() / width);
  const double ownY = std::max(1.0, m_grid->RatioY() * rect.Height() / height);
  std::vector<int> bands;
  for (const int colour : m_colours) bands.push_back(m_pair.Bands()[static_cast<std::size_t>(colour)]);
  const quality::Image source = ReducedImage(ms, bands, {left, top, right, bottom},
                                             std::max(1, static_cast<int>(std::lround((right - left) / ownX))),
                                             std::max(1, static_cast<int>(std::lround((bottom - top) / ownY))),
                                             [this](int, const std::vector<double>&) { m_goOn(); });
  const double scaleX = static_cast<double>(source.width) / (right - left);
  const double scaleY = static_cast<double>(source.height) / (bottom - top);
  for (std::size_t b = 0; b < bands.size(); ++b) {
    for (std::size_t i = 0; i < x.size(); ++i) {
      image.bands[b][i] = Sampled(source, b, (x[i] + 0.5 - left) * scaleX - 0.5, (y[i] + 0.5 - top) * scaleY - 0.5);
    }
  }
  return image;
}

}  // namespace fusion
