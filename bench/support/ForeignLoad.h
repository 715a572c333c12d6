#ifndef ZYL_BENCH_FOREIGNLOAD_H
#define ZYL_BENCH_FOREIGNLOAD_H

/// How much other programs had of the machine while this object lived. A round in which that is more than a few
/// hundredths is disturbed.
class ForeignLoad {
  public:
    ForeignLoad();
    /// The share of all processors' time that went neither to this process nor to children it has waited for,
    /// time that a virtual machine was not given included: 0 to 1. The machine counts in ticks and takes one that
    /// sleeps often for idle, so beside such a measurement this is too small by up to a fifth.
    double Share() const;

  private:
    /// In seconds, since the machine and this process have started.
    struct Times {
        double all;
        double busy;
        double ours;
    };
    static Times Now();

    Times m_start;
};

#endif
