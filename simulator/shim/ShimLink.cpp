#include "simulator/shim/ShimLink.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace orvane::shim {

namespace {

constexpr int kLowestDescriptor = 500;
constexpr int kDescriptorsBelowLimit = 16;  // when the limit is lower
constexpr int kHostGone = 125;
constexpr int kMaxBuffers = 1024;  // what the kernel takes in one call

int linkDescriptor = -1;
pid_t linkOwner = -1;  // a forked child must not use its parent's connection
pthread_mutex_t askLock = PTHREAD_MUTEX_INITIALIZER;
__thread bool asking __attribute__((tls_model("initial-exec"))) = false;

[[noreturn]] void Die() {
  constexpr char kText[] = "orvane-shim: the virtual instrument is gone\n";
  static_cast<void>(::syscall(SYS_write, STDERR_FILENO, kText, sizeof kText - 1));
  ::_exit(kHostGone);
}

int ToHighDescriptor(int descriptor) {
  rlimit limit{};
  int lowest = kLowestDescriptor;
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 &&
      limit.rlim_cur < rlim_t{kLowestDescriptor + kDescriptorsBelowLimit}) {
    lowest = static_cast<int>(limit.rlim_cur) - kDescriptorsBelowLimit;
  }
  const auto high =
      static_cast<int>(::syscall(SYS_fcntl, descriptor, F_DUPFD_CLOEXEC, lowest > 3 ? lowest : 3));
  static_cast<void>(::syscall(SYS_close, descriptor));
  return high;
}

/// @return the connected descriptor, or -1
int Connect(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (std::strlen(path) >= sizeof address.sun_path) {
    return -1;
  }
  std::memcpy(address.sun_path, path, std::strlen(path) + 1);
  const auto descriptor =
      static_cast<int>(::syscall(SYS_socket, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (descriptor < 0) {
    return -1;
  }
  if (::syscall(SYS_connect, descriptor, &address, sizeof address) != 0) {
    static_cast<void>(::syscall(SYS_close, descriptor));
    return -1;
  }
  return ToHighDescriptor(descriptor);
}

/// Connects, unless this process has a connection of its own already.
void EnsureConnection() {
  const pid_t self = ::getpid();
  if (linkOwner == self) {
    return;
  }
  if (linkDescriptor >= 0) {
    static_cast<void>(::syscall(SYS_close, linkDescriptor));
  }
  const char* const path = std::getenv(link::kAddressVariable);
  linkDescriptor = path == nullptr ? -1 : Connect(path);
  linkOwner = self;
  if (linkDescriptor < 0) {
    Die();
  }
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
long Transfer(long call, iovec* buffers, int count) {
  msghdr message{};
  message.msg_iov = buffers;
  message.msg_iovlen = static_cast<std::size_t>(count);
  long result = 0;
  do {
    result = ::syscall(call, linkDescriptor, &message, MSG_NOSIGNAL);
  } while (result < 0 && errno == EINTR);
  return result;
}

/// @return 0 or EFAULT
int SendAll(BufferList list, std::size_t bytes) {
  bool first = true;
  while (bytes > 0) {
    std::size_t cut = 0;
    const int used = list.Take(link::kPacketBytes, cut);
    const long sent = Transfer(SYS_sendmsg, list.first, used);
    if (sent < 0 && errno == EFAULT && first) {
      return EFAULT;
    }
    if (sent <= 0) {
      Die();
    }
    list.Drop(used, cut);
    bytes -= static_cast<std::size_t>(sent);
    first = false;
  }
  return 0;
}

/// @return 0 or EFAULT
int ReceiveAll(BufferList list, const link::Answer& answer) {
  std::size_t received = 0;
  do {
    std::size_t cut = 0;
    const int used = list.Take(link::kPacketBytes, cut);
    const long got = Transfer(SYS_recvmsg, list.first, used);
    if (got < 0 && errno == EFAULT && received == 0) {
      return EFAULT;  // the packet is lost with the answer in it, and nothing follows it
    }
    if (got <= 0) {
      Die();
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

void UnlockInChild() {
  askLock = PTHREAD_MUTEX_INITIALIZER;
  asking = false;
}

__attribute__((constructor)) void Start() {
  const int savedErrno = errno;
  if (std::getenv(link::kAddressVariable) != nullptr) {
    ::pthread_atfork(nullptr, nullptr, UnlockInChild);
    EnsureConnection();  // so that the host knows of every process, whether it has events or not
  }
  errno = savedErrno;
}

}  // namespace

bool IsLinked() {
  static int wanted = -1;  // not looked up yet
  if (wanted < 0) {
    wanted = std::getenv(link::kAddressVariable) != nullptr ? 1 : 0;
  }
  return wanted == 1 && !asking;
}

int Ask(link::Question question, Buffers buffers, link::Answer& answer) {
  const int savedErrno = errno;
  asking = true;
  ::pthread_mutex_lock(&askLock);
  EnsureConnection();
  const std::size_t payload = TotalBytes(buffers.send, buffers.sendCount);
  question.payloadBytes = payload;

  // The callers leave the first buffer of each array for the header.
  buffers.send[0] = {&question, sizeof question};
  buffers.receive[0] = {&answer, sizeof answer};
  int result = SendAll({buffers.send, buffers.sendCount}, sizeof question + payload);
  if (result == 0) {
    result = ReceiveAll({buffers.receive, buffers.receiveCount}, answer);
  }
  ::pthread_mutex_unlock(&askLock);
  asking = false;
  errno = savedErrno;
  return result;
}

}  // namespace orvane::shim
