#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

/// @param member  pointer to a virtual member function
/// @return its index in the table of virtual functions (a virtual destructor has two), read from
///         the pointer as the Itanium C++ ABI, section 2.3, defines it
template <typename Member>
std::size_t VirtualSlot(Member member) {
  static_assert(std::is_member_function_pointer_v<Member>);
  struct {
    std::size_t pointer;
    std::ptrdiff_t adjustment;
  } representation = {};
  static_assert(sizeof representation == sizeof member);
  std::memcpy(&representation, &member, sizeof member);
#if defined(__arm__) || defined(__aarch64__)
  return representation.pointer / sizeof(void*);
#else
  return (representation.pointer - 1) / sizeof(void*);
#endif
}
