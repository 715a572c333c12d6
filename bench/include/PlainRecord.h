#ifndef ZYL_BENCH_PLAINRECORD_H
#define ZYL_BENCH_PLAINRECORD_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

/// What the file-transfer record is compared with: the same content and the same bytes on the wire, written
/// and read by hand with the standard library's strings, lengths checked.
struct PlainRecord {
    std::int32_t code = 0;
    std::array<std::string, 8> names;
    std::int32_t chunkId = 0;
    std::int32_t chunkSize = 0;
    const char* chunk = nullptr;       ///< what is sent
    std::unique_ptr<char[]> received;  ///< what has come

    std::size_t Size() const {
        std::size_t size = 44 + static_cast<std::size_t>(chunkSize);
        for (const std::string& name : names) {
            size += name.size();
        }
        return size;
    }

    void Write(char* out) const {
        out = Put(out, code);
        for (const std::string& name : names) {
            out = Put(out, static_cast<std::int32_t>(name.size()));
            std::memcpy(out, name.data(), name.size());
            out += name.size();
        }
        out = Put(Put(out, chunkId), chunkSize);
        if (chunkSize > 0) {
            std::memcpy(out, chunk, static_cast<std::size_t>(chunkSize));
        }
    }

    void Read(const char* in, std::size_t size) {
        const char* const end = in + size;
        code = GetInt(in, end);
        for (std::string& name : names) {
            const std::size_t length = GetLength(in, end);
            name.assign(in, length);
            in += length;
        }
        chunkId = GetInt(in, end);
        const std::size_t length = GetLength(in, end);
        chunkSize = static_cast<std::int32_t>(length);
        if (length > 0) {
            received = std::make_unique_for_overwrite<char[]>(length);
            std::memcpy(received.get(), in, length);
        }
    }

  private:
    static char* Put(char* out, std::int32_t value) {
        std::memcpy(out, &value, sizeof value);
        return out + sizeof value;
    }
    static std::int32_t GetInt(const char*& in, const char* end) {
        std::int32_t value = 0;
        if (end - in < static_cast<std::ptrdiff_t>(sizeof value)) {
            throw std::runtime_error("the record is cut short");
        }
        std::memcpy(&value, in, sizeof value);
        in += sizeof value;
        return value;
    }
    static std::size_t GetLength(const char*& in, const char* end) {
        const std::int32_t length = GetInt(in, end);
        if (length < 0 || end - in < length) {
            throw std::runtime_error("the record is cut short");
        }
        return static_cast<std::size_t>(length);
    }
};

/// The names of an ordinary transfer, in the order of the record.
constexpr std::array<const char*, 8> kTransferNames = {
    "solver-01",  "/scratch/projects/wing/static",      "job-2024-117", "wing-static-results.dat",
    "monitor-01", "/home/analyst/projects/wing/static", "job-2024-117", "wing-static-results.dat"};

#endif
