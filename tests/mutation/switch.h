// Included before each source of the product that holds mutants: which of them is switched on. Linked once
// from switch.c.
#ifndef MUTATION_SWITCH_H
#define MUTATION_SWITCH_H

#include <type_traits>
#include <utility>

extern "C" int velo_mutant;  // the number of the one that is on; -1: none
extern "C" unsigned char
    *velo_mutants_seen;  // a byte for each that the run came by; null: nobody wants to know

static inline bool mutant(int number) {
    if (velo_mutants_seen != nullptr) velo_mutants_seen[number] = 1;
    return velo_mutant == number;
}

// What is returned instead of `value`: the other truth, 0 (1 for 0), null or what is empty.
template <class T>
static inline T mutant_return(int number, std::type_identity_t<T> value) {
    if (!mutant(number)) return value;
    if constexpr (std::is_same_v<T, bool>) {
        return !value;
    } else if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>) {
        return value == T{} ? static_cast<T>(1) : T{};
    } else {
        return T{};
    }
}

// The same where the whole source is built with it.
template <class T>
static inline std::remove_cvref_t<T> other(T &&value) {
    using Value = std::remove_cvref_t<T>;
    if constexpr (std::is_same_v<Value, bool>) {
        return !value;
    } else if constexpr (std::is_arithmetic_v<Value> || std::is_enum_v<Value>) {
        return value == Value{} ? static_cast<Value>(1) : Value{};
    } else {
        return Value{};
    }
}

#endif
