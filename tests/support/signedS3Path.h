#pragma once

#include <string>
#include <string_view>

namespace support {

/// Signs a request for anybody to send, independently of the library: no header of it may be one that is part of the
/// signature (Content-MD5, Content-Type, x-amz-...).
/// @param path "/bucket/key", escaped, perhaps with a query that is not part of the signature
/// @return the path with the signature, which is valid for an hour, in its query
/// @throws std::runtime_error if libcrypto fails
std::string signedS3Path(
    std::string_view method, std::string_view path, const std::string& accessKeyId, const std::string& secretAccessKey);

} // namespace support
