#ifndef ZYLMSGFILETRANSFEROUTCOME_H
#define ZYLMSGFILETRANSFEROUTCOME_H

#include "ZYLString.h"

/// The result of a file transfer as one of its two sides knows it.
struct ZYLMsgFileTransferOutcome {
    bool ok = true;
    ZYLString text;       ///< what failed, with file and reason, on one line; empty when all went well
    long long bytes = 0;  ///< read and sent at the source, written at the target
};

#endif
