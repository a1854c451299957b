#pragma once

#include <cstdint>
#include <string_view>

namespace tamo::core {

inline constexpr std::uint64_t kFnvOffset = 0xcbf29ce484222325ULL;
inline constexpr std::uint64_t kFnvPrime = 0x100000001b3ULL;

// 64-bit FNV-1a over bytes, continuing from hash.
constexpr std::uint64_t fnv1a(std::string_view bytes, std::uint64_t hash = kFnvOffset) {
    for (char c : bytes) {
        hash ^= static_cast<unsigned char>(c);
        hash *= kFnvPrime;
    }
    return hash;
}

}  // namespace tamo::core
