#pragma once

#include "kx/base/CBase.h"
#include "kx/base/P.h"
#include "kx/containers/TArray.h"
#include "kx/containers/TBuffer.h"
#include "kx/files/TPathImpl.h"
#include "kx/streams/IInStream.h"
#include "kx/text/String.h"
#include "norla/core/IDataSource.h"

#include <string>

namespace norla {

/// What a part of a form says of itself beside its name.
struct CFormPart {
    /// Empty for none: servers take the part for a field then and not for a file.
    kx::String fileName = {};

    /// Such as "image/png". Empty for none, which means plain text in UTF-8; addFile() has "application/octet-stream"
    /// in its place.
    kx::String contentType = {};
};

/// A form as browsers send it, multipart/form-data (RFC 7578), for CNetRequest::setFormData():
///
///     const auto form = kx::newObj<CFormData>();
///     form->addText("title", "Holiday");
///     form->addFile("photo", path, {.contentType = "image/jpeg"});
///     request->setFormData(form.get());
///
/// Parts are sent in the order in which they were added, several may have one name, and a form may be empty. What they
/// hold is read while it is sent, block by block, and again where a redirect or a login asks for it. A body is never
/// less or other than what was announced: a stream that ends before its length, or a file that is gone, has another
/// size than when it was added or is written to while it is sent, ends the transfer with an error that names it.
///
/// Names and file names are sent in UTF-8, with quotes and line ends escaped as browsers do (%22, %0D, %0A). The
/// boundary is random: 128 bits from the system, which nobody can have put into a part.
///
/// Used by one thread and one transfer at a time; it can be sent any number of times. A request keeps a reference until
/// another body takes its place, reset() or its own end: a form is made with kx::newObj() and never stands on the
/// stack.
class KX_EXPORT CFormData : public kx::CBase, public virtual IDataSource {
public:
    using Buffer = kx::TBuffer<unsigned char>;
    using Path = kx::TPathImpl<kx::CUnixPathTraits>;

    CFormData();
    CFormData(const CFormData&) = delete;
    CFormData& operator=(const CFormData&) = delete;
    ~CFormData() override;

    // All of these throw kx::CInvalidArgError for a name, file name or content type that cannot be sent: one with a
    // zero character, a content type with anything but visible ASCII and blanks; kx::CError for text without UTF-8
    // form.

    /// A text in UTF-8, with the line ends that it has.
    void addText(const kx::String& name, const kx::String& text, const CFormPart& part = {});

    /// @param buffer not null; a reference is kept, and it is not changed until the form has been sent
    void addBuffer(const kx::String& name, const Buffer* buffer, const CFormPart& part = {});

    /// All of a stream, from its start on. Where its length is unknown the form is sent in chunks.
    /// @param stream not null; a reference is kept
    void addStream(const kx::String& name, kx::IInStream* stream, const CFormPart& part = {});

    /// A file, under the name that it has in its folder unless another one is given. It is opened when its turn comes.
    /// A pipe is sent in chunks, and once.
    /// @throws kx::CError which names path and reason when it cannot be read, and for a directory
    void addFile(const kx::String& name, const Path& path, const CFormPart& part = {});

    /// "multipart/form-data; boundary=...".
    kx::String getContentType() const;

    /// The next bytes of the form. @throws kx::CError which names the part or file that is not what was announced; what
    /// a stream throws
    int read(unsigned char* buffer, int size, const HeaderMap& responseHeaders) override;

    /// Of the form as it is sent; -1 when that of a part is unknown.
    long long getLength() override;

    /// @param position 0, or any other of a form whose length is known
    /// @throws kx::CError on another position; what a stream throws
    void seek(long long position) override;
    long long getPosition() override { return m_position; }

    /// Takes each part back to its start, which is otherwise done when its turn comes: for who has to know before
    /// whether the form can be sent again. @throws what a stream throws that cannot
    void rewindParts();

private:
    struct CSegment;

    void addPart(const kx::String& name, const CFormPart& part, CSegment content);
    void addBytes(const std::string& bytes);
    int readSegment(CSegment& segment, unsigned char* buffer, int size);
    void requireWhole(CSegment& segment) const;
    void goTo(size_t segment, long long offset);

    const kx::String m_boundary;
    kx::TArray<CSegment> m_segments; // the last one is the form's end
    size_t m_current = 0;            // of the segments; behind the last one at the end
    long long m_offset = 0;          // in it
    long long m_position = 0;
    bool m_hasBegun = false; // the current segment
};

} // namespace norla
