#ifndef ZYLMSGFILETRANSFEROUTCOME_H
#define ZYLMSGFILETRANSFEROUTCOME_H

#include "ZYLString.h"

/// How a file transfer ended, as far as one of its two sides knows.
struct ZYLMsgFileTransferOutcome {
    bool ok = true;
    ZYLString text;       ///< what failed, with file and reason, on one line; empty when all went well
    long long bytes = 0;  ///< read and sent at the source, written at the target
};

#endif
