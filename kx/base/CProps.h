#pragma once

#include "kx/containers/TMap.h"
#include "kx/text/String.h"

namespace kx {

/// A set of named details, such as those of an error. A value type.
class KX_EXPORT CProps {
public:
    /// The value under the key, empty when there is none.
    String get(const String& key) const;

    /// Whether the key is there, even with an empty value.
    bool has(const String& key) const;

    /// Stores the value under the key, replacing an earlier one.
    void set(const String& key, const String& value);

    /// All keys with their values, ordered by key.
    const TMap<String, String>& getMap() const noexcept { return m_map; }

private:
    TMap<String, String> m_map;
};

} // namespace kx
