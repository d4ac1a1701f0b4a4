#include "flash/TransferBuffer.h"

// inline_ stays uninitialised: every user writes it before reading it.
TransferBuffer::TransferBuffer(std::size_t bytes)
    : heap_(bytes > kInlineBytes ? new std::uint8_t[bytes] : nullptr),
      data_(bytes > kInlineBytes ? heap_.get() : inline_.data()) {}
