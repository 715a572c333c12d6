#include "atr_StringBase.h"

#include <cstring>
#include <new>

#include "mem_Allocation.h"
#include "mem_Copy.h"

atr_StringBase::atr_StringBase(const char* text) {
    if (text != nullptr) {
        Assign(text, std::strlen(text));
    }
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

void atr_StringBase::Assign(const char* text, std::size_t size) {
    void* const block = mem_OperatorNewThrow(sizeof(atr_StringRep) + size + 1);
    auto* const rep = ::new (block) atr_StringRep;
    char* const copy = static_cast<char*>(block) + sizeof(atr_StringRep);
    mem_Copy(copy, text, size);
    copy[size] = '\0';
    Release();
    m_text = copy;
    m_rep = rep;
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
