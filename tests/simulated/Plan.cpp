#include "Plan.h"

#include <algorithm>
#include <iterator>

namespace simulated {

namespace {

using std::chrono::milliseconds;

/// Draws a plan piece by piece.
class Draft {
  public:
    explicit Draft(std::uint64_t seed) : m_dice(seed) {}

    Plan Make() {
        constexpr milliseconds kTimeouts[]{milliseconds(0), milliseconds(50), milliseconds(300),
                                           milliseconds(3000)};
        MakeWeather();
        constexpr std::size_t kRings[]{512, 1024, 4096};
        m_plan.lanes = !m_dice.OneIn(5);
        m_plan.ring = m_dice.AnyOf(kRings);
        m_plan.pace = 1 + static_cast<int>(m_dice.Roll(6));
        m_plan.connectTimeout = m_dice.AnyOf(kTimeouts);
        const int actors = 2 + static_cast<int>(m_dice.Roll(3));
        for (int actor = 0; actor < actors; ++actor) {
            MakeApplications(actor);
        }
        m_circle = m_dice.OneIn(6);
        m_flood = m_dice.OneIn(3);
        if (m_dice.OneIn(5)) {
            m_plan.lies = 1 + static_cast<int>(m_dice.Roll(12));
        }
        if (m_plan.lies > 0 || !m_dice.OneIn(8)) {
            m_plan.weather.faults[static_cast<std::size_t>(Fault::kTakeMemory)] = 0;
        }
        for (int actor = 0; actor < actors; ++actor) {
            auto& lives = m_plan.actors.emplace_back();
            const std::uint32_t count = m_dice.OneIn(2) ? 1 : 1 + m_dice.Roll(3);
            for (std::uint32_t life = 0; life < count; ++life) {
                MakeBlows(actor, static_cast<int>(life), life + 1 < count);
                lives.push_back(MakeLife(actor, actors));
            }
        }
        return std::move(m_plan);
    }

  private:
    void MakeWeather() {
        constexpr std::uint32_t kSwitches[]{2, 5, 20, 100};
        constexpr std::uint32_t kOften[]{0, 0, 2, 5, 30};
        constexpr std::uint32_t kSometimes[]{0, 0, 5, 30};
        constexpr std::uint32_t kRare[]{0, 0, 0, 1000};
        constexpr std::uint32_t kFaults[]{0, 0, 3, 20};
        constexpr std::size_t kCapacities[]{64, 150, 1000, 4096, 100000};
        constexpr std::size_t kBacklogs[]{1, 2, 64};
        Weather& weather = m_plan.weather;
        weather.switches = m_dice.AnyOf(kSwitches);
        weather.timeJumps = m_dice.AnyOf(kRare);
        weather.lateStores = m_dice.AnyOf(kOften);
        weather.shortTransfers = m_dice.AnyOf(kOften);
        weather.refusals = m_dice.AnyOf(kSometimes);
        weather.spurious = m_dice.AnyOf(kSometimes);
        weather.rare = m_dice.AnyOf(kOften);
        const bool faults = m_dice.OneIn(2);
        for (std::uint32_t& rate : weather.faults) {
            rate = faults ? m_dice.AnyOf(kFaults) : 0;
        }
        weather.faultsInAll = m_dice.Roll(40);
        weather.capacity = m_dice.AnyOf(kCapacities);
        weather.roomTold = 1 + m_dice.Roll(static_cast<std::uint32_t>(weather.capacity));
        weather.backlog = m_dice.AnyOf(kBacklogs);
        weather.pids = 1 + static_cast<int>(m_dice.Roll(6));
    }

    void MakeApplications(int actor) {
        const std::uint32_t count = m_dice.OneIn(3) ? 2 : 1;
        for (std::uint32_t index = 0; index < count; ++index) {
            const bool announced = !m_dice.OneIn(8);
            m_plan.applications.push_back({actor, static_cast<int>(m_dice.OneIn(4)),
                                           fmt::format("{}-{}", static_cast<char>('a' + actor), index),
                                           announced});
        }
    }

    void MakeBlows(int actor, int life, bool hasSuccessor) {
        constexpr milliseconds kStops[]{milliseconds(1), milliseconds(300), milliseconds(5000)};
        constexpr std::uint32_t kCalls[]{10, 100, 1000};
        const auto when = [&] { return m_dice.Roll(m_dice.AnyOf(kCalls)); };
        if (m_dice.OneIn(hasSuccessor ? 2 : 5)) {
            m_plan.blows.push_back({Blow::What::kKill, actor, life, when(), {}});
        }
        if (m_dice.OneIn(5)) {
            m_plan.blows.push_back({Blow::What::kStop, actor, life, when(), m_dice.AnyOf(kStops)});
        }
        if (m_dice.OneIn(8)) {
            m_plan.blows.push_back({Blow::What::kSignal, actor, life, when(), {}});
        }
    }

    std::vector<Step> MakeLife(int actor, int actors) {
        std::vector<Step> steps;
        for (std::size_t index = 0; index < m_plan.applications.size(); ++index) {
            if (m_plan.applications[index].actor == actor) {
                constexpr Step::What kStarts[]{Step::What::kDeclare, Step::What::kReceive,
                                               Step::What::kWatch};
                for (std::uint32_t count = m_dice.Roll(4); count > 0; --count) {
                    steps.push_back({m_dice.AnyOf(kStarts), static_cast<int>(index)});
                }
            }
        }
        if (m_circle) {
            const int next = OneOf((actor + 1) % actors);
            for (std::uint32_t count = 2 + m_dice.Roll(8); count > 0; --count) {
                steps.push_back({Step::What::kSend, next, Size()});
            }
        }
        for (std::uint32_t count = m_dice.Roll(m_dice.OneIn(4) ? 16 : 6); count > 0; --count) {
            steps.push_back(MakeStep(actor, actors));
        }
        if (m_dice.OneIn(3)) {
            steps.push_back({m_dice.OneIn(2) ? Step::What::kLeave : Step::What::kVanish});
        }
        return steps;
    }

    Step MakeStep(int actor, int actors) {
        using What = Step::What;
        constexpr What kWhats[]{What::kSend, What::kSend, What::kSend,  What::kSend,   What::kSend,
                                What::kSend, What::kLoop, What::kLoop,  What::kLoop,   What::kLoopAll,
                                What::kWork, What::kFork, What::kWatch, What::kReceive};
        constexpr milliseconds kTimes[]{milliseconds(0), milliseconds(1), milliseconds(30),
                                        milliseconds(2500)};
        constexpr Reaction kReactions[]{Reaction::kNothing, Reaction::kNothing, Reaction::kNothing,
                                        Reaction::kAnswer,  Reaction::kAnswer,  Reaction::kRelay,
                                        Reaction::kWait,    Reaction::kThrow};
        Step step{m_dice.AnyOf(kWhats)};
        step.application =
            OneOf(step.what == What::kSend ? static_cast<int>(m_dice.Roll(static_cast<std::uint32_t>(actors)))
                                           : actor);
        step.size = Size();
        step.reaction = m_dice.AnyOf(kReactions);
        step.other = OneOf(static_cast<int>(m_dice.Roll(static_cast<std::uint32_t>(actors))));
        step.count = static_cast<int>(m_dice.Roll(m_flood ? 40 : m_dice.OneIn(4) ? 12 : 4));
        step.time = m_dice.AnyOf(kTimes);
        return step;
    }

    int OneOf(int actor) {
        std::vector<int> own;
        for (std::size_t index = 0; index < m_plan.applications.size(); ++index) {
            if (m_plan.applications[index].actor == actor) {
                own.push_back(static_cast<int>(index));
            }
        }
        return own.empty() ? 0 : m_dice.AnyOf(own);
    }

    /// Around what the decisions turn on.
    int Size() {
        const std::size_t ring = m_plan.ring;
        const std::size_t sizes[]{0,        8,    100,      ring / 8,
                                  ring / 4, ring, 2 * ring, m_plan.LongestMessage() - 64};
        const std::size_t size =
            m_flood ? m_dice.Roll(static_cast<std::uint32_t>(ring / 5)) : m_dice.AnyOf(sizes);
        return static_cast<int>(
            m_flood || m_dice.OneIn(2) ? size : size + m_dice.Roll(129) - std::min<std::size_t>(size, 64));
    }

    Dice m_dice;
    Plan m_plan;
    bool m_circle = false;
    bool m_flood = false;  // of messages that fit into a lane
};

}  // namespace

Plan Plan::Of(std::uint64_t seed) {
    return Draft(seed).Make();
}

}  // namespace simulated
