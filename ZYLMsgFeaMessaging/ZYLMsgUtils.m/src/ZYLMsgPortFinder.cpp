#include "ZYLMsgPortFinder.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "QORSocketConnector.h"
#include "QORToken.h"

namespace {

/// The connector's arguments beside the port.
constexpr int kBacklog = 10;
constexpr int kAttempts = 2;

/// The low 16 bits of a candidate; a connector takes no more.
unsigned short PortNumber(int candidate) {
    return static_cast<unsigned short>(candidate & 0xFFFF);
}

/// The port that a connector for `candidate` could be declared on, or 0.
int Probe(int candidate) {
    QORSocketConnector connector(PortNumber(candidate), kBacklog, kAttempts);
    const bool declared =
        connector.Declare(nullptr) == 0 && connector.GetPort() != QORSocketConnector::kNoPort;
    return declared ? connector.GetPort() : 0;
}

}  // namespace

ZYLMsgPortFinder::ZYLMsgPortFinder(const QORUnicodeString& spec) {
    const QORUnicodeString comma(",");
    QORToken items(spec, 0);
    for (QORUnicodeString item = items.GetNextToken(comma, nullptr); !empty(item);
         item = items.GetNextToken(comma, nullptr)) {
        AddRange(item);
    }
}

void ZYLMsgPortFinder::AddRange(const QORUnicodeString& item) {
    const QORUnicodeString dash("-");
    QORToken parts(item, 0);
    const int low = toInt(parts.GetNextToken(dash, nullptr));
    if (low < 1) {
        return;
    }
    const QORUnicodeString highText = parts.GetNextToken(dash, nullptr);
    const int high = empty(highText) ? low : toInt(highText);
    if (high < low) {
        return;
    }
    if (m_ranges.empty()) {
        m_port = low - 1;
    }
    m_ranges.emplace_back(low, high);
}

int ZYLMsgPortFinder::FindOpenPort() {
    int candidate = GetPort();
    std::int64_t untried = CandidatesPerRound();
    do {
        if (const int port = Probe(candidate); port != 0) {
            return port;
        }
        if (--untried <= 0) {
            return 0;
        }
        candidate = GetPort();
    } while (PortNumber(candidate) != 0);
    return 0;
}

int ZYLMsgPortFinder::GetPort() {
    if (m_ranges.empty()) {
        return 0;
    }
    if (m_port < m_ranges[m_index].second) {
        return ++m_port;
    }
    m_index = (m_index + 1) % m_ranges.size();
    m_port = m_ranges[m_index].first;
    return m_port;
}

std::int64_t ZYLMsgPortFinder::CandidatesPerRound() const {
    std::int64_t sum = 0;
    for (const auto& [low, high] : m_ranges) {
        sum += std::int64_t{high} - low + 1;
    }
    return sum;
}

bool ZYLMsgPortFinder::empty(const QORUnicodeString& s) {
    return s.GetLengthInChar() == 0;
}

int ZYLMsgPortFinder::toInt(const QORUnicodeString& s) {
    char* end = nullptr;
    const long number = std::strtol(s.ConvertToChar(), &end, 10);
    if (*end != '\0') {
        return 0;
    }
    // A long may be wider than 32 bits; where it is not, strtol itself stops at these ends.
    return static_cast<int>(std::clamp<long>(number, std::numeric_limits<std::int32_t>::min(),
                                             std::numeric_limits<std::int32_t>::max()));
}
