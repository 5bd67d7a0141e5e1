#include "norla/s3/readListedObject.h"

#include "norla/s3/CS3ListPages.h"

namespace norla {

namespace {

void readOwner(const CS3ListPages& pages, const CXMLElement& owner, CS3ListedObject& object)
{
    owner.forEachElement([&](const CXMLElement& element) {
        if (element.isNamed("ID"))
            object.ownerId = pages.textIn(element);
        else if (element.isNamed("DisplayName"))
            object.ownerName = pages.textIn(element);
    });
}

} // namespace

void readListedObjectField(const CS3ListPages& pages, const CXMLElement& element, CS3ListedObject& object)
{
    if (element.isNamed("Key"))
        object.key = pages.nameIn(element);
    else if (element.isNamed("LastModified"))
        object.lastModified = pages.textIn(element);
    else if (element.isNamed("ETag"))
        object.eTag = pages.textIn(element);
    else if (element.isNamed("Size"))
        object.size = pages.sizeIn(pages.textIn(element));
    else if (element.isNamed("StorageClass"))
        object.storageClass = pages.textIn(element);
    else if (element.isNamed("Owner"))
        readOwner(pages, element, object);
}

CS3ListedObject readListedObject(CS3ListPages& pages, const CXMLElement& contents)
{
    CS3ListedObject object;
    contents.forEachElement([&](const CXMLElement& element) { readListedObjectField(pages, element, object); });
    pages.acceptKey(object.key);
    return object;
}

} // namespace norla
