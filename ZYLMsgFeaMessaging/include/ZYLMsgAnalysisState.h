#ifndef ZYLMSGANALYSISSTATE_H
#define ZYLMSGANALYSISSTATE_H

#include "ZYLMsgModulesExport.h"

/// The progress of this process's analysis: one unsynchronised value for the whole process, 0.0 at first.
class ZYLMSGMODULES_EXPORT ZYLMsgAnalysisState {
  public:
    static double GetPercentage();

    /// Stores any value; no range is enforced.
    static void SetPercentage(double percentage);

  private:
    static double m_percentage;
};

#endif
