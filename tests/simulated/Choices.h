#ifndef ZYL_TESTS_SIMULATED_CHOICES_H
#define ZYL_TESTS_SIMULATED_CHOICES_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <tuple>

namespace simulated {

/// Random numbers that a seed fixes.
class Dice {
  public:
    explicit Dice(std::uint64_t seed) : m_state(seed * 0x9e3779b97f4a7c15u + 1) {}
    /// 0 to count - 1.
    std::uint32_t Roll(std::uint32_t count) {
        return static_cast<std::uint32_t>(((Next() >> 32) * count) >> 32);
    }
    bool OneIn(std::uint32_t count) { return Roll(count) == 0; }
    template <class List>
    const auto& AnyOf(const List& list) {
        return list[Roll(static_cast<std::uint32_t>(std::size(list)))];
    }

  private:
    std::uint64_t Next() {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 7;
        m_state ^= m_state << 17;
        return m_state * 0x2545f4914f6cdd1du;
    }
    std::uint64_t m_state;
};

/// What is chosen while a world runs. Each kind has a count of its own for each life, so that leaving a
/// choice out moves few of the others.
enum class Kind : std::uint8_t {
    kSwitch,    ///< run another one
    kNext,      ///< who runs
    kTime,      ///< the clock jumps
    kStore,     ///< a store takes effect later
    kShort,     ///< fewer bytes than there could be
    kRefusal,   ///< not now, though there is room
    kSpurious,  ///< told or woken without a reason
    kOrder,     ///< in which order
    kFault,     ///< something is short
    kRare,      ///< other freedom that a system has
    kKinds
};

struct Choice {
    std::uint16_t life;
    Kind kind;
    std::uint32_t count;
    std::uint32_t value;
};

/// Lies in memory that outlives the process that writes it.
struct Record {
    std::size_t size = 0;
    std::array<Choice, std::size_t{1} << 18> choices;
};

/// Every choice is a number; 0 is the plain case. A seed draws them; a list of those that are not 0 plays
/// them again, and what is left out of it is plain.
class Choices {
  public:
    explicit Choices(std::uint64_t seed) : m_dice(seed) {}
    explicit Choices(std::span<const Choice> kept) : m_dice(0), m_replays(true) {
        for (const Choice& choice : kept) {
            m_kept[{choice.life, choice.kind, choice.count}] = choice.value;
        }
    }

    /// One time in `oneIn` 1 to `count`, else 0. Never, where `oneIn` is 0.
    std::uint32_t Draw(std::size_t life, Kind kind, std::uint32_t oneIn, std::uint32_t count = 1) {
        const std::uint32_t number = ++m_counts.at(life)[static_cast<std::size_t>(kind)];
        if (oneIn == 0) {
            return 0;
        }
        if (m_replays) {
            const auto found = m_kept.find({life, kind, number});
            return found != m_kept.end() ? std::min(found->second, count) : 0;
        }
        if (!m_dice.OneIn(oneIn)) {
            return 0;
        }
        const std::uint32_t value = 1 + m_dice.Roll(count);
        if (m_record != nullptr && m_record->size < m_record->choices.size()) {
            m_record->choices[m_record->size++] = {static_cast<std::uint16_t>(life), kind, number, value};
        }
        return value;
    }
    /// Those that are drawn and are not 0 go there from now on, as long as there is place.
    void RecordTo(Record& record) { m_record = &record; }

  private:
    static constexpr std::size_t kLives = 64;

    Dice m_dice;
    bool m_replays = false;
    std::map<std::tuple<std::size_t, Kind, std::uint32_t>, std::uint32_t> m_kept;
    std::array<std::array<std::uint32_t, static_cast<std::size_t>(Kind::kKinds)>, kLives> m_counts{};
    Record* m_record = nullptr;
};

}  // namespace simulated

#endif
