#include "cow_String.h"

cow_String::cow_String() = default;

cow_String::cow_String(const char* text) : atr_StringBase(text) {}

cow_String::cow_String(const atr_StringBase& other) : atr_StringBase(other) {}

cow_String::cow_String(const cow_String& other) = default;

cow_String& cow_String::operator=(const cow_String& other) = default;

cow_String::~cow_String() = default;

const char* cow_String::CStr() const {
    return atr_StringBase::CStr();
}
