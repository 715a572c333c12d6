#ifndef ZYLMSGFILETRANSFERDATA_H
#define ZYLMSGFILETRANSFERDATA_H

#include "ZYLMsgModulesExport.h"
#include "ZYLString.h"

/// The steps of the file-transfer protocol: the values of ZYLMsgFileTransferData::m_dataType. A receiver
/// ignores any other value. The completion of a failed transfer carries the reason in m_targetFileName.
enum DataTypeEnm : int {
    /// To the source: send me the file that the eight strings name.
    FILE_TRANSFER_SEND_REQUEST = 1,
    /// To the target: the file that the eight strings name follows.
    FILE_TRANSFER_RECEIVE_REQUEST = 2,
    /// To the target: the next bytes of the file.
    FILE_TRANSFER_CHUNK = 3,
    /// To the target: the file of m_sourceApplication is complete, please confirm.
    FILE_TRANSFER_SEND_COMPLETION = 4,
    /// To the target: the file is complete, do not confirm.
    FILE_TRANSFER_ISEND_COMPLETION = 5,
    /// To the source: the confirmation.
    FILE_TRANSFER_RECEIVE_COMPLETION = 6
};

/// The content of a file-transfer message: a plain record with the fields in wire order. In every message
/// but a chunk, m_chunkId is -1, m_chunkSize 0 and m_chunk null. Unused strings are empty.
class ZYLMSGMODULES_EXPORT ZYLMsgFileTransferData {
  public:
    /// Code 0, empty strings, no chunk.
    ZYLMsgFileTransferData();
    ~ZYLMsgFileTransferData();

    int m_dataType;  ///< a DataTypeEnm
    ZYLString m_sourceApplication;
    ZYLString m_sourceBaseDir;
    ZYLString m_sourceJobDir;
    ZYLString m_sourceFileName;
    ZYLString m_targetApplication;
    ZYLString m_targetBaseDir;
    ZYLString m_targetJobDir;
    ZYLString m_targetFileName;
    int m_chunkId;        ///< chunks of a file are numbered from 1
    int m_chunkSize;      ///< bytes at m_chunk
    const void* m_chunk;  ///< never owned by the record
};

#endif
