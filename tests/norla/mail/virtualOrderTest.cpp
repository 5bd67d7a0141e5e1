// The order of the virtual functions, which is part of the binary interface: a program that was built before an
// exchange of two would call the one for the other.
#include "norla/mail/CMultiPartMimeMessage.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

namespace {

/// A pointer to a virtual function as the Itanium C++ ABI has it (section 2.3, on x86-64): one more than the function's
/// place in the table, in bytes.
struct CMemberPointer {
    std::ptrdiff_t place;
    std::ptrdiff_t adjustment;
};

template <typename TFunction>
std::ptrdiff_t slotOf(TFunction function)
{
    static_assert(sizeof function == sizeof(CMemberPointer));
    CMemberPointer pointer{};
    std::memcpy(&pointer, &function, sizeof pointer);
    EXPECT_EQ(pointer.place % 2, 1) << "no virtual function";
    return (pointer.place - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

/// Behind those of kx::CBase, which are the ones of kx::IBase: two destructors (for an object, and for one that is
/// deleted too) and what counts references.
constexpr std::ptrdiff_t firstSlot = 6;

TEST(virtualOrderTest, ofAMessage)
{
    EXPECT_EQ(slotOf(&norla::CMimeMessage::setBody), firstSlot);
    EXPECT_EQ(slotOf(&norla::CMimeMessage::store), firstSlot + 1);
    EXPECT_EQ(slotOf(&norla::CMimeMessage::storeHeader), firstSlot + 2);
    EXPECT_EQ(slotOf(&norla::CMimeMessage::storeBody), firstSlot + 3);
}

TEST(virtualOrderTest, ofAMultipartMessageIsThatOfAMessage)
{
    EXPECT_EQ(slotOf(&norla::CMultiPartMimeMessage::setBody), firstSlot);
    EXPECT_EQ(slotOf(&norla::CMultiPartMimeMessage::store), firstSlot + 1);
    EXPECT_EQ(slotOf(&norla::CMultiPartMimeMessage::storeHeader), firstSlot + 2);
    EXPECT_EQ(slotOf(&norla::CMultiPartMimeMessage::storeBody), firstSlot + 3);
}

} // namespace
