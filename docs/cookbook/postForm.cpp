#include "norla/core/CNetRequest.h"
#include "norla/http/CFormData.h"

// Sends what a person has filled in, with a picture, as browsers do. A file of any size: it is read while it is sent.
void postForm(const kx::String& url, const kx::String& title, const norla::CNetRequest::Path& picture)
{
    const auto form = kx::newObj<norla::CFormData>();
    form->addText("title", title);
    form->addFile("picture", picture, {.contentType = "image/jpeg"});
    const auto request = kx::newObj<norla::CNetRequest>();
    request->setSafeDefaults();
    request->setURL(url);
    request->setFormData(form.get());
    request->perform();
}
