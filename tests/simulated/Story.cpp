#include "Story.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>
#include <regex>
#include <vector>

#include "Program.h"

namespace simulated {

namespace {

/// What a child process leaves to its parent.
struct Outcome {
    std::array<char, 1024> wrong;
    Record record;
};

/// What is wrong without what differs from run to run: names and numbers.
std::string KindOf(const std::string& wrong) {
    static const std::regex words("[^ ]*[0-9][^ ]* ?");
    return std::regex_replace(wrong, words, "");
}

class Shrinker {
  public:
    explicit Shrinker(std::uint64_t seed) : m_plan(Plan::Of(seed)) {
        void* const place =
            mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        m_outcome = new (place) Outcome;
        m_wrong = Try([&] {
            Choices choices(seed);
            choices.RecordTo(m_outcome->record);
            return Play(m_plan, choices, false).wrong;
        });
        m_choices.assign(
            m_outcome->record.choices.begin(),
            m_outcome->record.choices.begin() + static_cast<std::ptrdiff_t>(m_outcome->record.size));
    }

    void Run() {
        fmt::print("{}\n{} choices\n", m_wrong, m_choices.size());
        if (m_wrong.empty() || !StillFails()) {
            fmt::print("it does not fail when it is played again\n");
            return;
        }
        for (std::size_t size = Size() + 1; Size() < size;) {
            size = Size();
            Calm();
            Shorten(m_plan.blows);
            for (auto& lives : m_plan.actors) {
                Shorten(lives);
                std::ranges::for_each(lives, [&](auto& steps) { Shorten(steps); });
            }
            Shorten(m_choices);
        }
        const std::string wrong = Try([&] {
            Choices choices(m_choices);
            return Play(m_plan, choices, true).wrong;
        });
        fmt::print("{}\n{} choices\n", wrong, m_choices.size());
    }

  private:
    std::size_t Size() const {
        std::size_t size = m_choices.size() + m_plan.blows.size();
        for (const auto& lives : m_plan.actors) {
            for (const auto& steps : lives) {
                size += 1 + steps.size();
            }
        }
        return size;
    }

    /// In a child process, which may crash, or hang.
    std::string Try(const std::function<std::string()>& play) {
        constexpr unsigned kSeconds = 10;
        m_outcome->wrong = {};
        m_outcome->record.size = 0;
        std::fflush(stdout);
        const pid_t child = fork();
        if (child == 0) {
            alarm(kSeconds);
            const std::string wrong = play();
            std::strncpy(m_outcome->wrong.data(), wrong.c_str(), m_outcome->wrong.size() - 1);
            std::fflush(stdout);
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? fmt::format("it ends by signal {}", WTERMSIG(status))
                                   : m_outcome->wrong.data();
    }

    bool StillFails() {
        return KindOf(Try([&] {
                   Choices choices(m_choices);
                   return Play(m_plan, choices, false).wrong;
               })) == KindOf(m_wrong);
    }

    template <class Value>
    void Simplify(Value& value, const Value& simple) {
        const Value before = std::exchange(value, simple);
        if (!StillFails()) {
            value = before;
        }
    }

    void Calm() {
        Weather& weather = m_plan.weather;
        for (std::uint32_t* rate : {&weather.timeJumps, &weather.lateStores, &weather.shortTransfers,
                                    &weather.refusals, &weather.spurious, &weather.rare}) {
            Simplify(*rate, 0U);
        }
        for (std::uint32_t& rate : weather.faults) {
            Simplify(rate, 0U);
        }
        Simplify(weather.capacity, std::size_t{100000});
        Simplify(weather.backlog, std::size_t{64});
    }

    template <class Item>
    void Shorten(std::vector<Item>& list) {
        for (std::size_t chunk = list.size(); chunk > 0; chunk /= 2) {
            for (std::size_t at = 0; at < list.size();) {
                const std::vector<Item> before = list;
                const std::size_t end = std::min(at + chunk, list.size());
                list.erase(list.begin() + static_cast<std::ptrdiff_t>(at),
                           list.begin() + static_cast<std::ptrdiff_t>(end));
                if (!StillFails()) {
                    list = before;
                    at += chunk;
                }
            }
        }
    }

    Plan m_plan;
    std::vector<Choice> m_choices;
    std::string m_wrong;
    Outcome* m_outcome;
};

}  // namespace

void Shrink(std::uint64_t seed) {
    Shrinker(seed).Run();
}

}  // namespace simulated
