#include "ZYLMsgAnalysisState.h"

double ZYLMsgAnalysisState::m_percentage = 0.0;

double ZYLMsgAnalysisState::GetPercentage() {
    return m_percentage;
}

void ZYLMsgAnalysisState::SetPercentage(double percentage) {
    m_percentage = percentage;
}
