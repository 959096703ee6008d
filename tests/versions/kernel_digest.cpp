// kernel_digest SYMBOLS: runs the library's hot loops, in the version that the program's processor.cpp makes them take,
// over made-up rows and in runs of every method, and prints all results bit for bit, so that versions can be compared.
// Fails where a loop has not been run. SYMBOLS is a file with what nm says of the program.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "estimation/low_pass.h"
#include "evaluation/row_sums.h"
#include "framework/resampling/kernels.h"
#include "framework/resampling/row_resampler.h"
#include "framework/resampling/sample_range.h"
#include "framework/row_math.h"
#include "framework/shared_division.h"
#include "platform/algorithm/value_conversion.h"
#include "platform/raster/position_grid.h"
#include "platform/statistics/row_statistics.h"
#include "platform/validity/no_data.h"
#include "tests/versions/digest.h"
#include "tests/versions/loop_watch.h"
#include "tests/versions/processor.h"
#include "transform/ihs_model.h"

namespace {

using versions::Digest;
using versions::Row;

/// Ordinary samples with some of everything that is not.
Row MakeRow(std::mt19937& random, int n) {
  std::uniform_real_distribution<double> usual(-3000.0, 70000.0);
  std::uniform_int_distribution<int> kind(0, 39);
  const double odd[] = {0.0, -0.0, INFINITY, -INFINITY, NAN, 1e300, -1e300, 5e-324, 65535.5, -32768.9};
  Row row;
  for (int i = 0; i < n; ++i) {
    const int k = kind(random);
    row.push_back(k < 10 ? odd[k] : usual(random));
  }
  return row;
}

/// Numbers within a range.
Row MakePositions(std::mt19937& random, int n, double from, double to) {
  std::uniform_real_distribution<double> any(from, to);
  Row row;
  for (int i = 0; i < n; ++i) row.push_back(any(random));
  return row;
}

/// Every kernel in rows and at scattered positions, some of them outside, on ordinary bands and others, of which there
/// are more than are worked on at a time.
void DigestResampling(std::mt19937& random, int n, Digest& digest) {
  const CRect rect(3, 5, 60, 22);
  const auto samples = static_cast<int>(rect.Area());
  std::vector<Row> bands;
  for (int b = 0; b < 3; ++b) {
    bands.push_back(MakeRow(random, samples));
    bands.push_back(MakePositions(random, samples, -3000.0, 70000.0));
  }
  std::vector<const double*> pointers;
  for (const Row& band : bands) pointers.push_back(band.data());
  std::vector<Row> out(bands.size(), Row(static_cast<std::size_t>(n)));
  std::vector<double*> rows;
  for (Row& row : out) rows.push_back(row.data());
  const auto add = [&] {
    for (const Row& row : out) digest.Add(row);
  };

  const Row columns = MakePositions(random, n, 4.0, 57.0);
  const Row lines = MakePositions(random, 8, 4.0, 23.0);
  const Row x = MakePositions(random, n, 2.0, 60.0);
  const Row y = MakePositions(random, n, 4.0, 22.0);
  for (const ResampleType type : fusion::kResampleTypes) {
    fusion::RowResampler resampler(type, pointers.data(), static_cast<int>(bands.size()), rect);
    resampler.SetColumns(columns.data(), n);
    for (const double line : lines) {
      resampler.ResampleRow(line, rows.data());
      add();
    }
    resampler.ResamplePoints(x.data(), y.data(), n, rows.data());
    add();
  }
}

void DigestRowMath(std::mt19937& random, int n, Digest& digest) {
  const Row line = MakeRow(random, n + 4);
  const double weights[] = {-0.07, 0.6, 0.55, -0.08};
  const double* const lines[] = {line.data(), line.data() + 1, line.data() + 2, line.data() + 3};
  Row out = MakePositions(random, n, 0.0, 1.0);
  fusion::SumRows(lines, 4, n, out.data());
  fusion::AddScaledRow(line.data() + 2, 0.1, n, out.data());
  digest.Add(out);
  fusion::CombineRows(lines, weights, 4, n, out.data());
  digest.Add(out);
}

void DigestDivision(std::mt19937& random, int n, Digest& digest) {
  const Row row = MakePositions(random, n, -3000.0, 70000.0);
  const Row odd = MakeRow(random, n);
  Row out[] = {row, row};
  const double* const rows[] = {row.data(), odd.data()};
  double* const targets[] = {out[0].data(), out[1].data()};
  using fusion::Division;
  for (const Division way : {Division::kPlain, Division::kShared256, Division::kShared512}) {
    // Where there is another way it must give what the plain one gives.
    fusion::ShareRows(rows, row.data(), row.data(), 2, n, targets, fusion::CanDivide(way) ? way : Division::kPlain);
    digest.Add(out[0]);
    for (double& v : out[1]) v = std::isnan(v) ? 0.0 : v;
    digest.Add(out[1]);
  }
}

void DigestSampleRange(std::mt19937& random, int n, Digest& digest) {
  const CRect rect(3, 5, 20, 14);
  const Row samples = MakeRow(random, static_cast<int>(rect.Area()));
  const double* const bands[] = {samples.data()};
  const fusion::SampleRange range(bands, 1, rect);
  const Row x = MakePositions(random, n, 1.0, 22.0);
  const Row y = MakePositions(random, n, 4.0, 15.0);
  Row values = MakeRow(random, n);
  double* const rows[] = {values.data()};
  range.Keep(x.data(), y.data(), n, rows);
  fusion::RowLimits limits(range);
  limits.SetColumns(x.data(), n);
  limits.Keep(9.5, rows);
  for (double& v : values) v = std::isnan(v) ? 0.0 : v;
  digest.Add(values);
}

void DigestLowPass(std::mt19937& random, int n, Digest& digest) {
  const int size = n + 12;
  std::vector<double> columns;
  for (int i = 0; i < n; ++i) columns.push_back(6.0 + i * 1.01);
  const auto shape = fusion::LowPassShape::Gaussian(0.9);
  const fusion::SeparableFilter filter({shape, columns, size}, {shape, {4.2, 6.1, 8.0}, 14});
  const Row image = MakePositions(random, 14 * size, -3000.0, 70000.0);
  Row out(static_cast<std::size_t>(3 * n));
  filter.Apply(image.data(), {0, 0, size, 14}, {0, 0, n, 3}, out.data());
  digest.Add(out);
}

void DigestPositions(std::mt19937& random, int n, Digest& digest) {
  platform::PositionGrid grid;
  grid.cells = {-3.0, 71.0, 13.7, -9.1, 5, 4};
  const Row nodes = MakeRow(random, 60);
  for (std::size_t i = 0; i < nodes.size(); i += 2) grid.nodes.push_back({nodes[i], nodes[i + 1]});
  Row x = MakeRow(random, n);
  Row y = MakeRow(random, n);
  for (double& v : x) v *= 0.001;
  for (double& v : y) v *= 0.001;
  std::vector<int> outside;
  grid.Interpolate(x.data(), y.data(), n, x.data(), y.data(), outside);
  digest.Add(outside.data(), outside.size());
  digest.Add(x);
  digest.Add(y);
  platform::ToSampleCoordinates(x.data(), n, 5000);
  digest.Add(x);
}

void DigestConversion(std::mt19937& random, int n, Digest& digest) {
  const Row row = MakeRow(random, n);
  for (int type = PDT_UINT8; type <= PDT_FLOAT64; ++type) {
    for (const bool stretch : {false, true}) {
      platform::ValueConversion conversion;
      conversion.m_dOutMin = type == PDT_INT16 ? -32768.0 : 0.0;
      conversion.m_dOutMax = type == PDT_UINT8 ? 255.0 : 32767.0;
      conversion.m_dSrcMax = 60000.0;
      conversion.m_bStretch = stretch;
      std::vector<unsigned char> out(row.size() * sizeof(double), 0);
      conversion.ConvertRow(static_cast<PixelDataType>(type), row.data(), out.data(), row.size());
      if (type >= PDT_FLOAT32) continue;  // a NaN stays one, of whichever bits
      digest.Add(out.data(), out.size());
    }
  }
}

void DigestStatistics(std::mt19937& random, int n, Digest& digest) {
  std::uniform_real_distribution<double> usual(-100.0, 100.0);
  Row a;
  Row b;
  for (int i = 0; i <= n; ++i) {
    a.push_back(i % 7 == 3 ? -5.0 : usual(random));
    b.push_back(i % 11 == 4 ? NAN : usual(random));
  }
  for (const double noData : {-5.0, static_cast<double>(NAN)}) {
    platform::RowStatistics statistics(noData);
    statistics.Add(a.data(), n);
    statistics.Add(b.data(), n);
    platform::RowRange range(noData);
    range.Add(a.data(), n);
    range.Add(b.data(), n);
    digest.Add({range.Minimum(), range.Maximum(), statistics.Mean(), statistics.StdDev()});
    const platform::NoDataRule test{true, false, noData};
    Row valid(a.size(), 1.0);
    fusion::DropNoData(a.data(), n, test, valid.data());
    fusion::DropNoData(b.data(), n, test, valid.data());
    digest.Add(valid);
    double low = 1e10;
    double high = -1e10;
    fusion::WidenRow(a.data(), b.data(), n, test, low, high);
    Row marked(a.size(), 0.5);
    fusion::MarkValid(a.data(), b.data(), a.data() + 1, n, test, marked.data());
    digest.Add(marked);
    double least = 1e10;
    double most = -1e10;
    const std::int64_t widened = fusion::WidenValid(a.data(), valid.data(), n, least, most);
    digest.Add({least, most, static_cast<double>(widened)});
    double sum = 0.0;
    std::int64_t count = 0;
    fusion::SumRow(a.data(), n, test, sum, count);
    std::vector<std::int32_t> bins(a.size(), 0);
    fusion::BinRow(a.data(), n, test, -90.0, 80.0, bins.data());
    digest.Add(bins.data(), bins.size());
    const auto pairs = fusion::SumPairs(a.data(), b.data(), valid.data(), valid.data(), n, 1.5, -2.5);
    const auto gradients = fusion::SumGradients(a.data(), b.data(), valid.data(), n);
    const auto differences = fusion::SumDifferences(a.data(), b.data(), valid.data(), n);
    digest.Add({low, high, sum, static_cast<double>(count), pairs.fusedSquares, pairs.msSquares, pairs.products,
                pairs.errors, pairs.powers, pairs.deviations, pairs.pairs, pairs.nonZero, gradients.dx2, gradients.dy2,
                gradients.gradients, gradients.count, differences.absolute, differences.squares, differences.count});
    platform::MarkInvalid(b.data(), n, noData);
    digest.Add(b);
  }
}

void DigestIhs(std::mt19937& random, int n, Digest& digest) {
  // Rows with some of everything, and colours as they occur, some of them grey.
  std::uniform_int_distribution<int> byte(0, 20);
  for (const bool usual : {false, true}) {
    Row rows[4];
    for (Row& row : rows) {
      row = MakeRow(random, n);
      for (double& v : row) v = usual ? byte(random) * 12.5 : v;
    }
    platform::NoDataRule test{usual, true, 12.5};
    fusion::ScaleToBytes(-3.0, 800.0, test, rows[0].data(), n);
    digest.Add(rows[0]);
    Row out[] = {rows[0], rows[0], rows[0]};
    fusion::SubstituteIntensity(rows[0].data(), rows[1].data(), rows[2].data(), rows[3].data(), n, out[0].data(),
                                out[1].data(), out[2].data());
    for (const Row& row : out) digest.Add(row);
  }
}

void DigestRows(Digest& digest) {
  std::mt19937 random(7);
  for (const int n : {1, 3, 7, 8, 9, 31, 32, 33, 127, 128, 129, 257, 1024}) {
    const std::string width = " " + std::to_string(n);
    DigestResampling(random, n, digest);
    digest.Print("resampling" + width);
    DigestRowMath(random, n, digest);
    digest.Print("row math" + width);
    DigestSampleRange(random, n, digest);
    digest.Print("sample range" + width);
    DigestDivision(random, n, digest);
    digest.Print("division" + width);
    DigestLowPass(random, n, digest);
    digest.Print("low-pass" + width);
    DigestPositions(random, n, digest);
    digest.Print("positions" + width);
    DigestConversion(random, n, digest);
    digest.Print("conversion" + width);
    DigestStatistics(random, n, digest);
    digest.Print("statistics" + width);
    DigestIhs(random, n, digest);
    digest.Print("ihs" + width);
  }
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const int level = versions::ProcessorLevel();
  if (!versions::MachineHasLevel()) {
    std::puts("unsupported");
    return 0;
  }
  const std::string version = level < 3 ? ".default" : ".arch_x86_64_v" + std::to_string(level);
  const versions::LoopWatch watch(argc > 1 ? argv[1] : "", version);
  Digest digest;
  DigestRows(digest);
  versions::DigestRuns(digest);
  std::printf("%d loops\n", watch.Count());
  for (const std::string& name : watch.NotRun()) std::fprintf(stderr, "not run: %s%s\n", name.c_str(), version.c_str());
  return watch.NotRun().empty() && !testing::UnitTest::GetInstance()->Failed() ? 0 : 1;
}
