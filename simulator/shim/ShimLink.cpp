#include "simulator/shim/ShimLink.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "simulator/shim/LinkEnvironment.h"
#include "simulator/shim/ProgramTime.h"

namespace orvane::shim {

namespace {

constexpr int kLowestDescriptor = 500;
constexpr int kDescriptorsBelowLimit = 16;  // when the limit is lower
constexpr int kHostGone = 125;
constexpr int kMaxBuffers = 1024;  // what the kernel takes in one call

/// One connection, and the process that has it.
struct Connection {
  pid_t owner;
  int descriptor;
};

Connection own = {-1, -1};  // of the process whose memory this is; the descriptor is -1 at first
// Of a child of vfork, which runs on the memory of the thread that called it. It must leave all
// state of its parent as it is.
__thread Connection borrowed __attribute__((tls_model("initial-exec"))) = {-1, -1};
__thread pid_t asking __attribute__((tls_model("initial-exec"))) = 0;  // the process in Ask()
pthread_mutex_t askLock = PTHREAD_MUTEX_INITIALIZER;

[[noreturn]] void DieWithoutHost() { Die("the virtual instrument is gone"); }

/// Moves a descriptor to a high number, so that the program gets the same numbers as without it.
/// @return the one it had, when there is no other
int ToHighDescriptor(int descriptor, int lowest) {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 &&
      limit.rlim_cur < static_cast<rlim_t>(lowest) + kDescriptorsBelowLimit) {
    lowest = static_cast<int>(limit.rlim_cur) - kDescriptorsBelowLimit;
  }
  const auto high =
      static_cast<int>(::syscall(SYS_fcntl, descriptor, F_DUPFD_CLOEXEC, lowest > 3 ? lowest : 3));
  if (high < 0) {
    return descriptor;
  }
  static_cast<void>(::syscall(SYS_close, descriptor));
  return high;
}

/// @return the connected descriptor; -1: there is none left; ends the process without a host
int Connect() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const char* const path = LinkAddress();
  if (path == nullptr || std::strlen(path) >= sizeof address.sun_path) {
    DieWithoutHost();
  }
  std::memcpy(address.sun_path, path, std::strlen(path) + 1);
  const auto descriptor =
      static_cast<int>(::syscall(SYS_socket, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (descriptor < 0) {
    return -1;
  }
  long result = 0;
  do {
    result = ::syscall(SYS_connect, descriptor, &address, sizeof address);
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    DieWithoutHost();
  }
  return ToHighDescriptor(descriptor, kLowestDescriptor);
}

/// A list of buffers that is consumed from its start.
struct BufferList {
  iovec* first;
  int count;

  /// The leading buffers, cut so that they hold `bytes` or less.
  /// @param cut  what the last of them lost
  int Take(std::size_t bytes, std::size_t& cut) const {
    int used = 0;
    cut = 0;
    while (used < count && used < kMaxBuffers && bytes > 0) {
      iovec& buffer = first[used++];
      if (buffer.iov_len > bytes) {
        cut = buffer.iov_len - bytes;
        buffer.iov_len = bytes;
      }
      bytes -= buffer.iov_len;
    }
    return used;
  }

  /// Drops the leading `used` buffers, but for the `cut` bytes at the end of the last.
  void Drop(int used, std::size_t cut) {
    if (cut > 0) {
      --used;
      first[used].iov_base = static_cast<char*>(first[used].iov_base) + first[used].iov_len;
      first[used].iov_len = cut;
    }
    first += used;
    count -= used;
  }
};

/// @return as sendmsg or recvmsg
long Transfer(long call, int descriptor, iovec* buffers, int count) {
  msghdr message{};
  message.msg_iov = buffers;
  message.msg_iovlen = static_cast<std::size_t>(count);
  long result = 0;
  do {
    result = ::syscall(call, descriptor, &message, MSG_NOSIGNAL);
  } while (result < 0 && errno == EINTR);
  if ((message.msg_flags & MSG_TRUNC) != 0) {
    Die("an answer of the virtual instrument is too long");
  }
  return result;
}

/// @return 0 or EFAULT
int SendAll(int descriptor, BufferList list, std::size_t bytes) {
  bool first = true;
  while (bytes > 0) {
    std::size_t cut = 0;
    const int used = list.Take(link::kPacketBytes, cut);
    const long sent = Transfer(SYS_sendmsg, descriptor, list.first, used);
    if (sent < 0 && errno == EFAULT && first) {
      return EFAULT;
    }
    if (sent <= 0) {
      DieWithoutHost();
    }
    list.Drop(used, cut);
    bytes -= static_cast<std::size_t>(sent);
    first = false;
  }
  return 0;
}

/// @return 0 or EFAULT
int ReceiveAll(int descriptor, BufferList list, const link::Answer& answer) {
  std::size_t received = 0;
  do {
    std::size_t cut = 0;
    const int used = list.Take(link::kPacketBytes, cut);
    const long got = Transfer(SYS_recvmsg, descriptor, list.first, used);
    if (got < 0 && errno == EFAULT && received == 0) {
      return EFAULT;  // the packet is lost with the answer in it, and nothing follows it
    }
    if (got <= 0) {
      DieWithoutHost();
    }
    list.Drop(used, cut);
    received += static_cast<std::size_t>(got);
  } while (received < sizeof answer + answer.payloadBytes);
  return 0;
}

std::size_t TotalBytes(const iovec* buffers, int count) {
  std::size_t total = 0;
  for (int i = 0; i < count; ++i) {
    total += buffers[i].iov_len;
  }
  return total;
}

/// Sends a question and receives its answer.
/// @return as Ask()
int Exchange(int descriptor, link::Question question, Buffers buffers, link::Answer& answer) {
  const std::size_t payload = TotalBytes(buffers.send, buffers.sendCount);
  question.payloadBytes = payload;

  // The callers leave the first buffer of each array for the header.
  buffers.send[0] = {&question, sizeof question};
  buffers.receive[0] = {&answer, sizeof answer};
  int result = SendAll(descriptor, {buffers.send, buffers.sendCount}, sizeof question + payload);
  if (result == 0) {
    result = ReceiveAll(descriptor, {buffers.receive, buffers.receiveCount}, answer);
  }
  buffers.send[0] = {};
  return result;
}

/// Ends the process, and with it the run: it has no descriptor for the link. The place of its
/// standard input serves to say so.
[[noreturn]] void DieWithoutDescriptor() {
  constexpr char kWhy[] = "no descriptor is left for the link to the virtual instrument";
  static_cast<void>(::syscall(SYS_close, STDIN_FILENO));
  const int descriptor = Connect();
  if (descriptor >= 0) {
    iovec send[2] = {{}, {const_cast<char*>(kWhy), sizeof kWhy - 1}};
    iovec receive[1] = {};
    link::Answer answer{};
    static_cast<void>(
        Exchange(descriptor, {.op = link::Op::kRefused}, {send, 2, receive, 1}, answer));
  }
  Die(kWhy);
}

/// The connection of this process, which is made now if there is none yet.
Connection& EnsureConnection(pid_t self) {
  Connection& connection = self == own.owner ? own : borrowed;
  if (connection.owner != self || connection.descriptor < 0) {
    const int descriptor = Connect();
    if (descriptor < 0) {
      DieWithoutDescriptor();
    }
    connection = {self, descriptor};
  }
  return connection;
}

/// A forked child must not use its parent's connection. It gets its own when it asks.
void ForgetInChild() {
  const int savedErrno = errno;
  if (own.descriptor >= 0) {
    static_cast<void>(::syscall(SYS_close, own.descriptor));
  }
  own = {::getpid(), -1};
  borrowed = {-1, -1};
  asking = 0;
  askLock = PTHREAD_MUTEX_INITIALIZER;
  errno = savedErrno;
}

/// Looks up whether there is a host.
bool Prepare() {
  RememberEnvironment();
  own.owner = ::getpid();
  return LinkAddress() != nullptr;
}

__attribute__((constructor)) void Start() {
  const int savedErrno = errno;
  if (IsLinked()) {
    static_cast<void>(ProgramTime());  // now there is a descriptor for it
    ::pthread_atfork(nullptr, nullptr, ForgetInChild);
    EnsureConnection(own.owner);  // the host knows of every process, whether it has events or not
  }
  errno = savedErrno;
}

}  // namespace

void Die(const char* why) {
  constexpr char kName[] = "orvane-shim: ";
  iovec line[] = {{const_cast<char*>(kName), sizeof kName - 1},
                  {const_cast<char*>(why), std::strlen(why)},
                  {const_cast<char*>("\n"), 1}};
  static_cast<void>(::syscall(SYS_writev, STDERR_FILENO, line, 3));
  ::_exit(kHostGone);
}

bool IsOnInstrument() {
  static int found = -1;  // not looked up yet
  if (found < 0) {
    found = Prepare() ? 1 : 0;
  }
  return found == 1;
}

bool IsLinked() { return IsOnInstrument() && (asking == 0 || asking != ::getpid()); }

bool OwnsItsMemory() { return own.owner == ::getpid(); }

bool IsLinkDescriptor(int descriptor) {
  if (descriptor < 0 || (descriptor != own.descriptor && descriptor != borrowed.descriptor)) {
    return false;
  }
  const pid_t self = ::getpid();
  // A child of vfork has both: it got a copy of its parent's.
  return descriptor == own.descriptor || (borrowed.owner == self && self != own.owner);
}

void LeaveDescriptor(int descriptor) {
  const pid_t self = ::getpid();
  Connection& connection = self == own.owner ? own : borrowed;
  if (connection.owner != self || descriptor != connection.descriptor || descriptor < 0) {
    return;
  }
  const int savedErrno = errno;
  const bool locks = self == own.owner;
  if (locks) {
    ::pthread_mutex_lock(&askLock);
  }
  const auto moved =
      static_cast<int>(::syscall(SYS_fcntl, descriptor, F_DUPFD_CLOEXEC, descriptor + 1));
  if (moved < 0) {
    Die("no descriptor is left for the link to the virtual instrument");
  }
  connection.descriptor = moved;
  if (locks) {
    ::pthread_mutex_unlock(&askLock);
  }
  errno = savedErrno;
}

int Ask(link::Question question, Buffers buffers, link::Answer& answer) {
  const int savedErrno = errno;
  const pid_t self = ::getpid();
  const bool locks = self == own.owner;  // a child of vfork could end and leave its parent locked
  const pid_t outer = asking;
  asking = self;
  if (locks) {
    ::pthread_mutex_lock(&askLock);
  }
  const int result = Exchange(EnsureConnection(self).descriptor, question, buffers, answer);
  if (locks) {
    ::pthread_mutex_unlock(&askLock);
  }
  asking = outer;
  errno = savedErrno;
  return result;
}

}  // namespace orvane::shim
