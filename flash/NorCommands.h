#pragma once

#include <cstdint>

/// Serial NOR command set: opcode, then the bytes that follow it (MT25QL128 data sheet, chapters
/// "Command definitions" and "Status register"; MX25L128 data sheet for the configuration register
/// and block protection).
namespace nor {

inline constexpr std::uint8_t kWriteStatus = 0x01;     // status byte, configuration byte
inline constexpr std::uint8_t kPageProgram = 0x02;     // 3 address bytes, 1..256 data bytes
inline constexpr std::uint8_t kRead = 0x03;            // 3 address bytes, data until deselected
inline constexpr std::uint8_t kReadStatus = 0x05;      // 1 byte back, repeated while clocked
inline constexpr std::uint8_t kWriteEnable = 0x06;     // no more bytes
inline constexpr std::uint8_t kReadConfig = 0x15;      // 1 byte back
inline constexpr std::uint8_t kEraseSubsector = 0x20;  // 3 address bytes
inline constexpr std::uint8_t kReadId = 0x9F;          // 3 bytes back: maker, type, capacity
inline constexpr std::uint8_t kEraseSector = 0xD8;     // 3 address bytes

inline constexpr int kIdBytes = 3;
inline constexpr int kHeaderBytes = 4;  // opcode and address, before the data

inline constexpr std::uint8_t kStatusBusy = 1U << 0;
inline constexpr int kStatusLevelShift = 2;  // bits 2..5: protect level
inline constexpr std::uint8_t kLevelMask = 0x0F;
inline constexpr std::uint8_t kStatusKeptMask = 0x43;   // bits 0, 1, 6: kept when the level changes
inline constexpr std::uint8_t kConfigBottom = 1U << 3;  // protection counts from address 0

inline constexpr std::uint8_t kLockableMaker = 0xC2;  // maker of the chips with a protect level

inline constexpr int kPageBytes = 256;
inline constexpr int kSubsectorBytes = 4 * 1024;
inline constexpr int kSectorBytes = 64 * 1024;
static_assert(kSectorBytes % kSubsectorBytes == 0 && kSubsectorBytes % kPageBytes == 0);

}  // namespace nor
