#pragma once

class wxInputStream;
class wxXmlDocument;

namespace norla {

/// Loads a document as wxXmlDocument::Load() does it, except that it tells its caller what it cannot read and nobody
/// else (wxWidgets' log opens a window in somebody's desktop program), that its time and memory grow with the size of
/// the bytes, whatever is in them, and that it makes what the readers of a store's documents ask for: elements and the
/// texts in them, white space included, but no attributes, comments or processing instructions.
/// @param document gets the root element; anything else in it stays as it is
/// @param stream read to its end. The document's declaration says how it is encoded: UTF-8 (also without a
/// declaration), UTF-16, ISO-8859-1 or US-ASCII.
/// @return false when it is not well-formed, has a document type (the only way to entities of its own) or nests more
/// than 100 elements; the document stays as it was then
bool loadQuietly(wxXmlDocument& document, wxInputStream& stream);

} // namespace norla
