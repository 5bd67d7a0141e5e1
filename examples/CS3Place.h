#pragma once

#include "examples/text.h"

#include <string>

/// BUCKET/KEY as it stands on the command line.
struct CS3Place {
    /// @throws as usageError() for what is not UTF-8
    explicit CS3Place(const std::string& text)
        : bucket(textOf(text.substr(0, text.find('/')), "BUCKET"))
        , key(textOf(text.find('/') == std::string::npos ? "" : text.substr(text.find('/') + 1), "KEY"))
    {
    }

    /// The same of a word that names an object. @throws as usageError() also when it has no key
    static CS3Place ofObject(const std::string& text)
    {
        CS3Place place(text);
        const kx::String missing(place.bucket.isEmpty() ? L"BUCKET" : L"KEY");
        if (place.bucket.isEmpty() || place.key.isEmpty())
            throw usageError(missing + " is missing: '" + shownPath(text) + "'");
        return place;
    }

    bool operator==(const CS3Place& other) const = default;

    kx::String name() const { return key.isEmpty() ? bucket : bucket + "/" + key; }

    kx::String bucket;
    kx::String key;
};
