#ifndef ZYL_EXAMPLES_PROGRESSMESSAGE_H
#define ZYL_EXAMPLES_PROGRESSMESSAGE_H

#include <string>

#include "ZYLMsgBBMessage.h"

/// A message class of one's own: where a solver stands after a step. Sender and receiver compile it in; the
/// receiver registers one as the prototype. Its body:
///
///     step (4 bytes) | percent (8) | residual (8) | hottest (8)
///
/// the integer and the IEEE 754 doubles with their least significant byte first, without padding: 28 bytes.
class ProgressMessage : public ZYLMsgBBMessage {
  public:
    /// The class's own name is the type's, the same in every program.
    ProgressMessage() : ZYLMsgBBMessage(ZYLString::BuildFromUTF8("ProgressMessage")) {}

    int step = 0;
    double percent = 0;   ///< of all steps
    double residual = 0;  ///< root mean square of the step's changes
    double hottest = 0;   ///< highest temperature

    /// "50 %, step 5, residual 3.25, hottest 251".
    std::string Text() const;

    int RequiredBufferSize() const override;
    void Stream(void* buffer, int size) const override;
    void Unstream(const void* buffer, int size) override;
    ProgressMessage* Clone() const override { return new ProgressMessage; }
    void Print(FILE* stream, const char* prefix) const override;
};

#endif
