#pragma once

#include <cstddef>
#include <cstdint>

namespace tracker {
namespace sim {

// A cursor over bytes owned by someone else, for decoding captures that may be damaged anywhere.
// Every read checks what is left first: a read past the end takes nothing, yields zero and marks
// the reader failed, so a decoder can read a whole structure and check failed() once.
//
// The bytes must outlive the reader. Not thread-safe; a reader is a local of one decode.
class ByteReader {
  public:
    ByteReader(const uint8_t* bytes, std::size_t size) : m_next(bytes), m_left(size) {}

    std::size_t remaining() const { return m_left; }
    bool failed() const { return m_failed; }

    uint8_t u8() {
        const uint8_t* at = take(1);
        return at ? at[0] : 0;
    }
    uint16_t u16le() {
        const uint8_t* at = take(2);
        return at ? static_cast<uint16_t>(at[0] | at[1] << 8) : 0;
    }
    uint32_t u32le() {
        const uint8_t* at = take(4);
        return at ? static_cast<uint32_t>(at[0]) | static_cast<uint32_t>(at[1]) << 8 |
                        static_cast<uint32_t>(at[2]) << 16 | static_cast<uint32_t>(at[3]) << 24
                  : 0;
    }
    uint32_t u32be() {
        const uint8_t* at = take(4);
        return at ? static_cast<uint32_t>(at[0]) << 24 | static_cast<uint32_t>(at[1]) << 16 |
                        static_cast<uint32_t>(at[2]) << 8 | static_cast<uint32_t>(at[3])
                  : 0;
    }
    uint64_t u64be() {
        const uint64_t high = u32be();
        return high << 32 | u32be();
    }
    // The next `count` bytes, or nullptr (failing the reader) when fewer are left.
    const uint8_t* take(std::size_t count) {
        if (m_failed || count > m_left) {
            m_failed = true;
            return nullptr;
        }
        const uint8_t* at = m_next;
        m_next += count;
        m_left -= count;
        return at;
    }
    // A reader over the next `count` bytes, which this one moves past; a failed, empty reader
    // (and this one failed) when fewer are left.
    ByteReader sub(std::size_t count) {
        const uint8_t* at = take(count);
        ByteReader inner(at, at ? count : 0);
        inner.m_failed = at == nullptr;
        return inner;
    }

  private:
    const uint8_t* m_next;
    std::size_t m_left;
    bool m_failed = false;
};

}  // namespace sim
}  // namespace tracker
