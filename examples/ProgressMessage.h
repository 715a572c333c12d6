#ifndef ZYL_EXAMPLES_PROGRESSMESSAGE_H
#define ZYL_EXAMPLES_PROGRESSMESSAGE_H

#include <string>

#include "ZYLMsgBBMessage.h"

/// An example of an application's own message class: the state of a solver after a step. Sender and
/// receiver both compile it, and the receiver registers an object as the prototype. Its body:
///
///     step (4 bytes) | percent (8) | residual (8) | hottest (8)
///
/// the integer and the IEEE 754 doubles with their least significant byte first, without padding: 28
/// bytes.
class ProgressMessage : public ZYLMsgBBMessage {
  public:
    /// The type name is the class name.
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
