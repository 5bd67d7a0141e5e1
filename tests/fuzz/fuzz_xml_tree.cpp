// What is taken is read as wxWidgets reads it.
#include "norla/s3/CXMLTree.h"
#include "tests/fuzz/require.h"
#include "tests/support/xmlOutline.h"

#include <wx/mstream.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto tree = norla::CXMLTree::parse({reinterpret_cast<const char*>(data), size});
    if (!tree)
        return 0;
    wxXmlDocument ofWx;
    wxMemoryInputStream bytes(data, size);
    require(ofWx.Load(bytes, wxS("UTF-8"), wxXMLDOC_KEEP_WHITESPACE_NODES), "wxWidgets takes it too");
    require(support::xmlOutlineOf(tree->getRoot()) == support::xmlOutlineOf(*ofWx.GetRoot()), "both read the same");
    return 0;
}
