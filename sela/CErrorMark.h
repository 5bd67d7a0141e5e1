#pragma once

namespace sela {

/// Keeps the failures of one scope out of OpenSSL's list of the thread's errors: whoever asks it later for a reason of
/// their own would find ours. What stands in it already stays.
class CErrorMark {
public:
    CErrorMark() noexcept;
    CErrorMark(const CErrorMark&) = delete;
    CErrorMark& operator=(const CErrorMark&) = delete;
    ~CErrorMark();
};

} // namespace sela
