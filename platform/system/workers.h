#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace platform {

/// Threads that share work out among them, whoever calls included. They start when there is work for them, sleep while
/// there is none, and end with the object. Several threads may call at the same time, and work may itself call.
class Workers {
 public:
  /// @param threads the most that work at a time for a call, the caller's among them; 0 or less: as many as the machine
  ///   has processors
  explicit Workers(int threads);
  ~Workers();
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  int Count() const { return m_count; }
  /// Calls share on the caller's thread and, as far as others are free in the meantime, on at most count - 1 of those
  /// at the same time. Ends when all calls have ended. Throws what one of them threw.
  void Share(int count, const std::function<void()>& share);

 private:
  struct Impl;
  int m_count;
  std::unique_ptr<Impl> m_impl;
};

/// Calls work(state, i) for i from 0 to count - 1, each once, in no order: on the workers' threads and the caller's,
/// each with a state of its own from makeState(), or one after another on the caller's alone, where there are no
/// workers (null). Whoever keeps the results apart and puts them together in their order gets the same from any number
/// of threads. Throws what one of the calls threw; what has not begun then stays undone.
template <typename MakeState, typename Work>
void ForEachWith(Workers* workers, int count, const MakeState& makeState, const Work& work) {
  if (count <= 0) return;
  if (!workers || workers->Count() == 1 || count == 1) {
    auto state = makeState();
    for (int i = 0; i < count; ++i) work(state, i);
    return;
  }
  std::atomic<int> next = 0;
  workers->Share(count, [&] {
    // Whoever comes late need not make a state.
    int i = next++;
    if (i >= count) return;
    try {
      for (auto state = makeState(); i < count; i = next++) work(state, i);
    } catch (...) {
      next = count;
      throw;
    }
  });
}

/// The same without a state: work(i).
template <typename Work>
void ForEach(Workers* workers, int count, const Work& work) {
  ForEachWith(
      workers, count, [] { return 0; }, [&work](int, int i) { work(i); });
}

/// States that cost something to make, for work that comes in several calls of ForEachWith: each of them takes states
/// that are left from the calls before. A state is in one thread's hands at a time.
template <typename MakeState>
class SpareStates {
 public:
  using State = decltype(std::declval<const MakeState&>()());
  struct GiveBack {
    SpareStates* states;
    void operator()(State* state) const { states->Keep(std::unique_ptr<State>(state)); }
  };

  /// @param makeState kept by reference
  SpareStates(const Workers* workers, const MakeState& makeState) : m_makeState(makeState) {
    m_spare.reserve(workers ? static_cast<std::size_t>(workers->Count()) : 1);
  }

  std::unique_ptr<State, GiveBack> Take() {
    {
      const std::lock_guard lock(m_mutex);
      if (!m_spare.empty()) {
        std::unique_ptr<State, GiveBack> state(m_spare.back().release(), GiveBack{this});
        m_spare.pop_back();
        return state;
      }
    }
    return {new State(m_makeState()), GiveBack{this}};
  }

 private:
  /// There is room for it: no more of them are out at a time than threads work.
  void Keep(std::unique_ptr<State> state) {
    const std::lock_guard lock(m_mutex);
    m_spare.push_back(std::move(state));
  }

  const MakeState& m_makeState;
  std::mutex m_mutex;
  std::vector<std::unique_ptr<State>> m_spare;
};

/// Calls fold(part) with what make(state, i) makes of each of count pieces, as ForEachWith does it. The parts are
/// folded on the caller's thread in the order of the pieces, so that sums are the same whoever has made their parts.
template <typename MakeState, typename Make, typename Fold>
void FoldInOrder(Workers* workers, int count, const MakeState& makeState, const Make& make, const Fold& fold) {
  if (!workers || workers->Count() == 1) {
    auto state = makeState();
    for (int i = 0; i < count; ++i) fold(make(state, i));
    return;
  }
  // A few at a time, since each of them takes memory until it is folded.
  const int most = 8 * workers->Count();
  SpareStates states(workers, makeState);
  using Part = decltype(make(*states.Take(), 0));
  for (int first = 0; first < count; first += most) {
    std::vector<Part> parts(static_cast<std::size_t>(std::min(most, count - first)));
    ForEachWith(
        workers, static_cast<int>(parts.size()), [&] { return states.Take(); },
        [&](auto& state, int i) { parts[static_cast<std::size_t>(i)] = make(*state, first + i); });
    for (const Part& part : parts) fold(part);
  }
}

/// The same without a state: make(i).
template <typename Make, typename Fold>
void FoldInOrder(Workers* workers, int count, const Make& make, const Fold& fold) {
  FoldInOrder(
      workers, count, [] { return 0; }, [&make](int, int i) { return make(i); }, fold);
}

}  // namespace platform
