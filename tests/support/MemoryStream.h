#ifndef ZYL_TESTS_MEMORYSTREAM_H
#define ZYL_TESTS_MEMORYSTREAM_H

#include <stdio.h>
#include <stdlib.h>

#include <string>

/// A C stream that keeps in memory what is written to it.
class MemoryStream {
  public:
    MemoryStream() = default;
    ~MemoryStream() {
        fclose(m_stream);
        free(m_text);
    }
    MemoryStream(const MemoryStream&) = delete;
    MemoryStream& operator=(const MemoryStream&) = delete;

    FILE* Get() { return m_stream; }
    /// What its writers have flushed so far.
    std::string Flushed() const { return std::string(m_text, m_size); }
    /// Everything written so far.
    std::string Text() {
        fflush(m_stream);
        return Flushed();
    }

  private:
    char* m_text = nullptr;
    size_t m_size = 0;
    FILE* m_stream = open_memstream(&m_text, &m_size);
};

#endif
