#pragma once

#include <cstddef>

namespace norla {

/// Whether the bytes are a well-formed XML document that a parser can load in time and memory that grow with its length: no
/// document type (and so no entities of its own), no more than 100 elements inside each other, no more than 64 attributes
/// an element, and no piece of text that is longer than 64 KiB or cut into more than 2048 parts by line ends and references.
/// UTF-8, UTF-16, ISO-8859-1 and US-ASCII are understood.
bool isHarmlessXML(const char* data, size_t size);

} // namespace norla
