#pragma once

#include "norla/s3/CS3ListedObject.h"

namespace norla {

class CS3ListPages;
class CXMLElement;

/// Reads one of the elements that an object in a list is made of; passes over others.
/// @throws as CS3ListPages::sizeIn() and nameIn()
void readListedObjectField(const CS3ListPages& pages, const CXMLElement& element, CS3ListedObject& object);

/// Reads an object of a list. @throws also as CS3ListPages::acceptKey()
CS3ListedObject readListedObject(CS3ListPages& pages, const CXMLElement& contents);

} // namespace norla
