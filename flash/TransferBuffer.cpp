#include "flash/TransferBuffer.h"

// inline_ stays uninitialised: it is written before it is read, and clearing it would cost more
// than the transfer.
TransferBuffer::TransferBuffer(std::size_t bytes)
    : heap_(bytes > kInlineBytes ? new std::uint8_t[bytes] : nullptr),
      data_(bytes > kInlineBytes ? heap_.get() : inline_.data()) {}
