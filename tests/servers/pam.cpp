// Stands in for the system's PAM in a server program that it is preloaded into: lets "user" in with the password
// "secret", and nobody else. The system's own knows only the services that are set up for the whole machine.
#include <cstdlib>
#include <cstring>
#include <security/pam_appl.h>
#include <string>

struct pam_handle {
    std::string user;
    pam_conv conversation;
};

namespace {

std::string askForPassword(const pam_conv& conversation)
{
    const pam_message message{PAM_PROMPT_ECHO_OFF, "Password: "};
    const pam_message* messages = &message;
    pam_response* response = nullptr;
    if (conversation.conv(1, &messages, &response, conversation.appdata_ptr) != PAM_SUCCESS || !response)
        return {};
    const std::string password = response->resp ? response->resp : "";
    std::free(response->resp);
    std::free(response);
    return password;
}

} // namespace

extern "C" {

int pam_start(const char*, const char* user, const pam_conv* conversation, pam_handle_t** handle)
{
    *handle = new pam_handle{user, *conversation};
    return PAM_SUCCESS;
}

int pam_end(pam_handle_t* handle, int)
{
    delete handle;
    return PAM_SUCCESS;
}

int pam_authenticate(pam_handle_t* handle, int)
{
    const bool isKnown = handle->user == "user" && askForPassword(handle->conversation) == "secret";
    return isKnown ? PAM_SUCCESS : PAM_AUTH_ERR;
}

int pam_acct_mgmt(pam_handle_t*, int)
{
    return PAM_SUCCESS;
}

int pam_setcred(pam_handle_t*, int)
{
    return PAM_SUCCESS;
}

int pam_set_item(pam_handle_t*, int, const void*)
{
    return PAM_SUCCESS;
}

int pam_get_item(const pam_handle_t* handle, int, const void** item)
{
    *item = handle->user.c_str();
    return PAM_SUCCESS;
}

int pam_open_session(pam_handle_t*, int)
{
    return PAM_SUCCESS;
}

int pam_close_session(pam_handle_t*, int)
{
    return PAM_SUCCESS;
}

} // extern "C"
