#pragma once

#include <string>

namespace norla {

/// Where a file goes over FTP or SFTP, and its temporary name beside. All are bytes.
struct CUploadPlace {
    bool isSFTP = false;
    std::string url;
    std::string temporaryURL;
    std::string folderURL;     ///< with a slash at its end
    std::string name;          ///< as a command has it that is sent in the folder; over SFTP a path in quotation marks
    std::string temporaryName; ///< the same
};

/// @param url of scheme ftp, ftps or sftp
/// @param digits of the file, for its temporary name: NAME.DIGITS.norla-part, where NAME is shortened so that 255 bytes
/// are enough
/// @throws kx::CError naming the URL without its secrets, when it has a query or fragment, or names no file, or when a
/// name holds control characters, which would begin other commands
CUploadPlace uploadPlaceOf(const std::string& url, const std::string& digits);

} // namespace norla
