#include "platform/statistics/survey.h"

#include <utility>

#include "platform/utility/checksums.h"

namespace platform {
namespace {

constexpr std::string_view kMark = "fusion survey 1\n";

std::string ChecksumOf(std::string_view bytes) {
  Crc32c sum;
  sum.Add(bytes.data(), bytes.size());
  return sum.Text();
}

}  // namespace

bool Survey::Rows::Holds(std::int64_t piece, std::int64_t count) const {
  // In doubles, which are exact enough for any place: all processes compute the same one.
  const auto row =
      static_cast<std::int64_t>(static_cast<double>(piece) * static_cast<double>(of) / static_cast<double>(count));
  return row >= first && row < end;
}

void Survey::Gather(const Rows& rows) {
  m_rows = rows;
  m_gathers = true;
  m_waits = false;
  m_found.clear();
}

Survey Survey::Found() const {
  Survey found(m_subject);
  found.m_known = m_found;
  return found;
}

std::int64_t Survey::PartCount() const {
  std::int64_t count = 0;
  for (const auto& [name, pass] : m_known) count += static_cast<std::int64_t>(pass.parts.size());
  return count;
}

void Survey::Merge(const Survey& other) {
  if (other.m_subject != m_subject) throw SurveyFault("The surveys are of different images, options or versions.");
  for (const auto& [name, theirs] : other.m_known) {
    Pass& mine = m_known.try_emplace(name, Pass{theirs.count, {}}).first->second;
    bool agree = mine.count == theirs.count;
    for (const auto& [piece, bytes] : theirs.parts) {
      agree = agree && mine.parts.try_emplace(piece, bytes).first->second == bytes;
    }
    if (!agree) throw SurveyFault("The surveys contradict each other (" + name + ").");
  }
}

std::string Survey::ToBytes() const {
  PartWriter writer;
  std::string subject = m_subject;
  std::uint64_t passes = m_known.size();
  writer(subject, passes);
  for (const auto& [name, pass] : m_known) {
    std::string text = name;
    std::int64_t count = pass.count;
    std::uint64_t parts = pass.parts.size();
    writer(text, count, parts);
    for (const auto& [piece, bytes] : pass.parts) {
      std::int64_t place = piece;
      std::string part = bytes;
      writer(place, part);
    }
  }
  return std::string(kMark) + ChecksumOf(writer.bytes) + writer.bytes;
}

Survey Survey::FromBytes(std::string_view bytes) {
  constexpr std::size_t kSum = 8;
  if (!bytes.starts_with(kMark)) throw SurveyFault("This is no survey that this version knows.");
  bytes.remove_prefix(kMark.size());
  CheckSurveyed(bytes.size() >= kSum && bytes.substr(0, kSum) == ChecksumOf(bytes.substr(kSum)));
  PartReader reader(bytes.substr(kSum));
  Survey survey;
  std::uint64_t passes = 0;
  reader(survey.m_subject, passes);
  for (; passes > 0; --passes) {
    std::string name;
    Pass pass;
    std::uint64_t parts = 0;
    reader(name, pass.count, parts);
    CheckSurveyed(pass.count >= 0);
    for (; parts > 0; --parts) {
      std::int64_t piece = 0;
      std::string part;
      reader(piece, part);
      CheckSurveyed(piece >= 0 && piece < pass.count && pass.parts.try_emplace(piece, std::move(part)).second);
    }
    CheckSurveyed(survey.m_known.try_emplace(std::move(name), std::move(pass)).second);
  }
  CheckSurveyed(reader.IsAtEnd());
  return survey;
}

SurveyPass::SurveyPass(Survey* survey, const std::string& name, std::int64_t count, bool waits) {
  const auto all = [this, count](const auto& wanted) {
    for (std::int64_t piece = 0; piece < count; ++piece) {
      if (wanted(piece)) m_pieces.push_back(piece);
    }
  };
  // Without pieces there is nothing to wait for.
  if (!survey || count == 0) {
    all([](std::int64_t) { return true; });
    return;
  }
  const auto known = survey->m_known.find(name);
  if (known != survey->m_known.end()) {
    CheckSurveyed(known->second.count == count);
    m_known = &known->second;
    if (m_known->IsComplete()) return;
  }
  if (!survey->Gathers()) {
    throw SurveyFault("The survey is not complete (" + name +
                      " is missing): the parts of all rows of every round are to be merged.");
  }
  m_isPending = true;
  if (waits) {
    survey->Wait();
    return;
  }
  m_found = &survey->m_found.try_emplace(name, Survey::Pass{count, {}}).first->second;
  all([&](std::int64_t piece) {
    return survey->m_rows.Holds(piece, count) && !(m_known && m_known->parts.contains(piece)) &&
           !m_found->parts.contains(piece);
  });
}

}  // namespace platform
