#include "ProgressMessage.h"

#include <fmt/format.h>

#include <cstdio>

#include "ZYLMsgAssert.h"
#include "ZYLMsgWireReader.h"
#include "ZYLSimRpm_Swapper.h"

namespace {

constexpr const char* kSourceFile = "examples/ProgressMessage";

/// The swapper checks nothing; the reader ends the process with an error that names the field if the body
/// is too short.
double ReadDouble(ZYLMsgWireReader& body, const char* field) {
    double value = 0;
    ZYLSimRpm_Swapper::InternalizeScalar(body.ReadBytes(sizeof value, field), value);
    return value;
}

}  // namespace

std::string ProgressMessage::Text() const {
    return fmt::format("{:g} %, step {}, residual {:.3g}, hottest {:g}", percent, step, residual, hottest);
}

int ProgressMessage::RequiredBufferSize() const {
    return sizeof step + sizeof percent + sizeof residual + sizeof hottest;
}

void ProgressMessage::Stream(void* buffer, int size) const {
    ZYL_ASSERT(size >= RequiredBufferSize());
    char* out = static_cast<char*>(buffer);
    out += ZYLSimRpm_Swapper::ExternalizeScalar(out, step);
    out += ZYLSimRpm_Swapper::ExternalizeScalar(out, percent);
    out += ZYLSimRpm_Swapper::ExternalizeScalar(out, residual);
    ZYLSimRpm_Swapper::ExternalizeScalar(out, hottest);
}

void ProgressMessage::Unstream(const void* buffer, int size) {
    ZYLMsgWireReader body(buffer, size);
    step = body.ReadInt("step");
    percent = ReadDouble(body, "percent");
    residual = ReadDouble(body, "residual");
    hottest = ReadDouble(body, "hottest");
}

void ProgressMessage::Print(FILE* stream, const char* prefix) const {
    ZYLMsgBBMessage::Print(stream, prefix);
    std::fprintf(stream, "%s   %s\n", prefix != nullptr ? prefix : "", Text().c_str());
}
