// What is taken is read as wxWidgets reads it.
#include "norla/s3/quietXML.h"
#include "tests/fuzz/require.h"
#include "tests/support/xmlOutline.h"

#include <wx/mstream.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    wxXmlDocument quiet;
    wxMemoryInputStream bytes(data, size);
    if (!norla::loadQuietly(quiet, bytes))
        return 0;
    wxXmlDocument ofWx;
    bytes.SeekI(0);
    require(ofWx.Load(bytes, wxS("UTF-8"), wxXMLDOC_KEEP_WHITESPACE_NODES), "wxWidgets takes it too");
    require(support::xmlOutlineOf(*quiet.GetDocumentNode()) == support::xmlOutlineOf(*ofWx.GetDocumentNode()),
        "both read the same");
    return 0;
}
