#pragma once

#include <cstddef>
#include <cstdint>

/// The link between a program on the virtual instrument and its host. The program's side (the shim)
/// asks, the host answers; one question at a time on each connection. Every question gets exactly one
/// answer, except kRefused and one after which the process is killed. Both are a header and
/// `payloadBytes` of payload, cut into packets of kPacketBytes with a shorter one at the end.
namespace orvane::link {

inline constexpr const char* kAddressVariable =
    "ORVANE_LINK";  // holds the path of the host's socket
inline constexpr const char* kClockStepVariable =
    "ORVANE_CLOCK_STEP";  // holds nanoseconds; not there: the clock is the machine's
inline constexpr const char* kTimePageVariable =
    "ORVANE_TIME";  // holds the path of a TimePage; not there: the clock is the machine's
inline constexpr std::size_t kPacketBytes = 64U << 10;
/// An SPI message with more bytes than this to send is sent without them.
inline constexpr std::uint64_t kMaxPayloadBytes = 64U << 20;
/// The host gives a number, the handle, to each path that is opened; this one stands for no path.
inline constexpr std::uint32_t kNoHandle = 0;

enum class Op : std::uint32_t {
  kOpen,    // a: flags, b: mode; payload: path. Answer kProceed, kProceedAt or kDone with an error
  kOpenAt,  // as kOpen, for an ordinary file. kProceed with kNoHandle: it is no event
  kOpened,  // handle; a: errno of the open that kOpen let through, 0 when it succeeded
  kClose,   // handle; a: descriptor. kProceed, or kDone: closed, but with an error
  kRead,    // handle; a: count, b: offset in the file. kDone with the bytes, or kProceed
  kWrite,   // handle; a: count, b: 1 when the bytes are left out; payload: the bytes unless kind is
            // kFile. kDone or kProceed
  kWritten,  // handle; a: result of the write that kWrite let through, or minus its errno
  kFileCall,  // handle of its file, or kNoHandle; payload: the call, "unlinkat lock". kProceed or kDone
              // with an error; kProceed with kNoHandle: it is no event
  kFileCalled,  // a: errno of the call that kFileCall let through, 0 when it succeeded
  kSpi,         // handle; a: number of transfers, b: 1 when the bytes are left out; payload:
                // SpiTransfer[a], the bytes to send. kDone with the bytes received
  kI2c,         // handle; a: number of messages; payload: I2cMessage[a], the bytes to send. As kSpi
  kIoctl,       // handle; a: request; payload: what the request reads. kDone with what it writes
  kSleep,       // a: nanoseconds. kProceed: sleep now; kDone: do not
  kSync,        // no event: what was written without a question is put before what follows
  kRefused,     // payload: why the run cannot go on. Ends it, so there is no answer
};

struct Question {
  Op op;
  std::uint32_t handle;
  std::int64_t a;
  std::int64_t b;
  std::uint64_t payloadBytes;
};

enum class Action : std::uint32_t {
  kProceed,    // the shim makes the real call
  kProceedAt,  // kOpen: likewise, on the path in the payload
  kDone,       // the host has made it: return `result`, or -1 with `error` when that is not 0
};

enum class Kind : std::uint32_t {
  kFile,    // an ordinary file: reads are not reported, writes without their bytes
  kSysfs,   // a file of the instrument's /sys
  kDevice,  // an SPI or I2C node
};
inline constexpr std::uint32_t kKindBits = 2;

struct Answer {
  Action action;
  std::int32_t error;
  std::int64_t result;   // kOpen with kProceedAt: flags to open with, beside the program's own
  std::uint32_t handle;  // kOpen, kOpenAt, kFileCall
  Kind kind;             // kOpen
  std::uint64_t payloadBytes;
};

struct SpiTransfer {
  std::uint32_t length;
  std::uint32_t speedHz;
  std::uint8_t bitsPerWord;
  std::uint8_t chipSelectChange;
  std::uint8_t sends;     // has a buffer to send from
  std::uint8_t receives;  // has a buffer to receive into
};

struct I2cMessage {
  std::uint16_t address;
  std::uint16_t length;
  std::uint16_t reads;
};

}  // namespace orvane::link
