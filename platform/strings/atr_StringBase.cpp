#include "atr_StringBase.h"

#include <cstring>
#include <new>

#include "mem_Allocation.h"

atr_StringBase::atr_StringBase(const char* text) {
    if (text == nullptr) {
        return;
    }
    const std::size_t bytes = std::strlen(text) + 1;
    void* block = mem_OperatorNewThrow(sizeof(atr_StringRep) + bytes);
    m_rep = ::new (block) atr_StringRep;
    m_text =
        static_cast<const char*>(std::memcpy(static_cast<char*>(block) + sizeof(atr_StringRep), text, bytes));
}

atr_StringBase::atr_StringBase(const atr_StringBase& other) : m_text(other.m_text), m_rep(other.m_rep) {
    if (m_rep != nullptr) {
        m_rep->Increment();
    }
}

// Counting the other up before letting go keeps the text alive when both share it, or are the same string.
// NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
atr_StringBase& atr_StringBase::operator=(const atr_StringBase& other) {
    const char* text = other.m_text;
    atr_StringRep* rep = other.m_rep;
    if (rep != nullptr) {
        rep->Increment();
    }
    Release();
    m_text = text;
    m_rep = rep;
    return *this;
}

atr_StringBase::~atr_StringBase() {
    Release();
}

void atr_StringBase::Release() {
    if (m_rep != nullptr && m_rep->Decrement()) {
        Delete();
    }
}

void atr_StringBase::Delete() {
    mem_Free(m_rep);
    m_rep = nullptr;
    m_text = nullptr;
}

int atr_StringBase::Compare(const atr_StringBase& other) const {
    return Compare(other.CStr());
}

int atr_StringBase::Compare(const char* text) const {
    const int order = std::strcmp(CStr(), text);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

bool operator==(const atr_StringBase& a, const atr_StringBase& b) {
    return a.Compare(b) == 0;
}

bool operator==(const atr_StringBase& a, const char* b) {
    return a.Compare(b) == 0;
}

bool operator!=(const atr_StringBase& a, const char* b) {
    return a.Compare(b) != 0;
}

bool operator<(const atr_StringBase& a, const atr_StringBase& b) {
    return a.Compare(b) < 0;
}
