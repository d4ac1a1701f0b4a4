#pragma once

#include <array>
#include <bit>
#include <cstddef>

/// @return place of a virtual function in the table of its class, counted from 0: a pointer to a
///         virtual member function holds the offset in the table (C++ ABI for Itanium, chapter 2.3;
///         the lowest bit is a flag)
template <typename Member>
std::size_t VirtualSlot(Member member) {
  const auto words = std::bit_cast<std::array<std::size_t, 2>>(member);
  return (words[0] & ~std::size_t{1}) / sizeof(void*);
}
