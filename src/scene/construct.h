#pragma once

#include "hv.h"
#include "session/guard.h"

#include <cstdint>
#include <string_view>
#include <vector>

/// What the exported construction functions share. They check what a C host can get wrong; the records check nothing.
namespace hv {

/// The element that a handle names, or null.
template <class T>
T* Find(std::vector<T>& registry, int handle)
{
    return handle >= 0 && static_cast<std::size_t>(handle) < registry.size()
               ? &registry[static_cast<std::size_t>(handle)]
               : nullptr;
}

/// Runs `store` on the element that a handle names; a bad handle is ignored.
template <class T, class Store>
void Edit(std::vector<T>& registry, int handle, Store store)
{
    if (T* const element = Find(registry, handle); element != nullptr) Guarded([&] { store(*element); });
}

/// Appends a default element; returns its handle, -1 without memory.
template <class T>
int Append(std::vector<T>& registry)
{
    return Guarded(-1, [&] {
        registry.emplace_back();
        return static_cast<int>(registry.size()) - 1;
    });
}

/// Appends a default element to a list inside the element that a handle names; returns -1 for a bad handle.
template <class T, class Element>
int AppendTo(std::vector<T>& registry, int handle, std::vector<Element> T::*list)
{
    T* const element = Find(registry, handle);
    return element != nullptr ? Append(element->*list) : -1;
}

/// A host's string; null counts as empty.
inline std::string_view TextOf(const char* text)
{
    return text != nullptr ? std::string_view(text) : std::string_view();
}

/// Whether a host's value, which may be any int in C, is one of the enumerators 0 to `last`.
template <class Enum>
bool IsEnumerator(Enum value, Enum last)
{
    return static_cast<int>(value) >= 0 && static_cast<int>(value) <= static_cast<int>(last);
}

/// Whether a host's value is one bit of Channel or several; a light's AOV takes sets.
inline bool IsChannelSet(Channel value) { return static_cast<int>(value) > 0 && static_cast<int>(value) <= 0xffff; }

}  // namespace hv
