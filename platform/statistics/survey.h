#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace platform {

/// What is given for a survey and is none, or one of something else. The text is a sentence for the user.
class SurveyFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Throws what damaged bytes lead to, where a condition does not hold.
inline void CheckSurveyed(bool holds) {
  if (!holds) throw SurveyFault("The survey is damaged.");
}

// Parts of a survey as bytes: numbers as they are in memory, the lowest byte first. What is no number has an
// Exchange(archive), which names its members once for both directions.
static_assert(std::endian::native == std::endian::little);

class PartWriter {
 public:
  template <typename... Values>
  void operator()(Values&... values) {
    (Put(values), ...);
  }
  std::string bytes;

 private:
  void Append(const void* values, std::size_t size) { bytes.append(static_cast<const char*>(values), size); }
  template <typename Value>
  void Put(Value& value) {
    if constexpr (std::is_arithmetic_v<Value>) {
      Append(&value, sizeof(value));
    } else {
      value.Exchange(*this);
    }
  }
  void Put(std::string& text) {
    const std::uint64_t size = text.size();
    Append(&size, sizeof(size));
    bytes += text;
  }
  template <typename Value>
  void Put(std::vector<Value>& values) {
    const std::uint64_t size = values.size();
    Append(&size, sizeof(size));
    if constexpr (std::is_arithmetic_v<Value>) {
      Append(values.data(), values.size() * sizeof(Value));
    } else {
      for (Value& value : values) Put(value);
    }
  }
};

/// Throws SurveyFault where the bytes end too early.
class PartReader {
 public:
  explicit PartReader(std::string_view bytes) : m_bytes(bytes) {}
  template <typename... Values>
  void operator()(Values&... values) {
    (Take(values), ...);
  }
  bool IsAtEnd() const { return m_bytes.empty(); }

 private:
  void Copy(void* values, std::size_t size) {
    CheckSurveyed(size <= m_bytes.size());
    if (size > 0) std::memcpy(values, m_bytes.data(), size);
    m_bytes.remove_prefix(size);
  }
  template <typename Value>
  void Take(Value& value) {
    if constexpr (std::is_arithmetic_v<Value>) {
      Copy(&value, sizeof(value));
    } else {
      value.Exchange(*this);
    }
  }
  /// How many values follow, each of so many bytes at least.
  std::size_t Size(std::size_t least) {
    std::uint64_t size = 0;
    Take(size);
    CheckSurveyed(size <= m_bytes.size() / least);
    return static_cast<std::size_t>(size);
  }
  void Take(std::string& text) {
    text.assign(Size(1), '\0');
    Copy(text.data(), text.size());
  }
  template <typename Value>
  void Take(std::vector<Value>& values) {
    if constexpr (std::is_arithmetic_v<Value>) {
      values.resize(Size(sizeof(Value)));
      Copy(values.data(), values.size() * sizeof(Value));
    } else {
      values.clear();
      for (std::size_t i = Size(1); i > 0; --i) Take(values.emplace_back());
    }
  }

  std::string_view m_bytes;
};

/// What a run takes from whole images, piece by piece: for each of its passes over an image the parts that its
/// statistics are folded from. Pieces may be looked at by different processes on different machines; since the parts
/// are those that one run computes, and are folded in the same order, the statistics have the same bits.
///
/// A run with a survey either uses it, and then looks at nothing that is in it, or gathers: of each pass that is not
/// complete it computes the parts of its own pieces. What then depends on that pass has to wait until the parts of all
/// others are merged.
class Survey {
 public:
  /// Rows of a result, counted from its first one, and how many it has. A piece belongs to the rows that lie in the
  /// result as the piece's place lies among the pieces of its pass.
  struct Rows {
    std::int64_t first = 0;
    std::int64_t end = 0;
    std::int64_t of = 0;
    bool Holds(std::int64_t piece, std::int64_t count) const;
  };

  Survey() = default;
  /// @param subject names what the survey is of: surveys of another subject have nothing to do with it
  explicit Survey(std::string subject) : m_subject(std::move(subject)) {}
  const std::string& Subject() const { return m_subject; }
  void SetSubject(std::string subject) { m_subject = std::move(subject); }

  /// Lets runs gather from now on, of pieces that belong to the rows.
  void Gather(const Rows& rows);
  bool Gathers() const { return m_gathers; }
  /// How many rows there are, where that turns out later: until then passes have one piece.
  void SetHeight(std::int64_t height) { m_rows.of = height; }
  /// Passes that are not complete and were met.
  std::int64_t Pending() const { return static_cast<std::int64_t>(m_found.size()); }
  /// Notes that something waits for passes that are pending.
  void Wait() { m_waits = true; }
  bool IsAwaited() const { return m_waits; }

  /// What was gathered, and nothing else.
  Survey Found() const;
  std::int64_t PartCount() const;
  /// Adds the parts of another one of the same subject. Throws SurveyFault where they contradict each other.
  void Merge(const Survey& other);

  std::string ToBytes() const;
  /// Throws SurveyFault.
  static Survey FromBytes(std::string_view bytes);

 private:
  friend class SurveyPass;
  struct Pass {
    std::int64_t count = 0;
    std::map<std::int64_t, std::string> parts;
    bool IsComplete() const { return static_cast<std::int64_t>(parts.size()) == count; }
  };
  using Passes = std::map<std::string, Pass>;

  std::string m_subject;
  Passes m_known;
  Passes m_found;
  Rows m_rows;
  bool m_gathers = false;
  bool m_waits = false;
};

/// A pass over the pieces of an image. Without a survey all pieces are looked at and folded as they come; with one it
/// is the survey that says which, if any.
class SurveyPass {
 public:
  /// @param survey null: none
  /// @param waits whether what it looks at depends on a pass that is pending
  /// Throws SurveyFault where a survey is used that does not have the pass.
  SurveyPass(Survey* survey, const std::string& name, std::int64_t count, bool waits = false);

  /// The pieces to look at, in their order.
  const std::vector<std::int64_t>& Pieces() const { return m_pieces; }
  /// Whether parts are kept, and not folded at once.
  bool Records() const { return m_found != nullptr; }

  /// Folds the part of a piece, or keeps it.
  template <typename Part, typename Fold>
  void Take(std::int64_t piece, Part& part, const Fold& fold) const {
    if (!Records()) {
      fold(part);
      return;
    }
    PartWriter writer;
    writer(part);
    m_found->parts[piece] = std::move(writer.bytes);
  }

  /// After the last piece, where none has failed: folds the parts that the survey has. False where the pass is pending,
  /// so that there is nothing to go on with.
  template <typename Part, typename Fold>
  bool End(const Fold& fold) const {
    if (m_isPending) {
      // Pieces in which there was nothing to look at are done, too.
      for (const std::int64_t piece : m_pieces) m_found->parts.try_emplace(piece);
      return false;
    }
    if (!m_known) return true;
    for (const auto& [piece, bytes] : m_known->parts) {
      if (bytes.empty()) continue;
      PartReader reader(bytes);
      Part part;
      reader(part);
      CheckSurveyed(reader.IsAtEnd());
      fold(part);
    }
    return true;
  }

 private:
  const Survey::Pass* m_known = nullptr;
  Survey::Pass* m_found = nullptr;
  bool m_isPending = false;
  std::vector<std::int64_t> m_pieces;
};

}  // namespace platform
