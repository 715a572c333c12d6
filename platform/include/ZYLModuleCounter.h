#ifndef ZYLMODULECOUNTER_H
#define ZYLMODULECOUNTER_H

/// Counts the users of one module: its initialisations minus its finalisations, from 0 at load.
///
/// It is never clamped: a surplus finalisation leaves -1, and the next initialisation only restores 0. A
/// counter with static storage needs no construction or destruction, so it works at any time during load
/// and unload. Not synchronised: one thread at a time initialises and finalises modules.
class ZYLModuleCounter {
  public:
    /// Counts an initialisation. The first one adds 1 to `count`, the caller's tally.
    /// @return whether it was the first
    bool Initialize(int& count) {
        if (m_users++ != 0) {
            return false;
        }
        ++count;
        return true;
    }

    /// Counts a finalisation. The last one subtracts 1 from `count`, the caller's tally.
    /// @return whether it was the last
    bool Finalize(int& count) {
        if (--m_users != 0) {
            return false;
        }
        --count;
        return true;
    }

  private:
    int m_users = 0;
};

#endif
