#pragma once

#include "kx/base/CBase.h"
#include "kx/base/CError.h"
#include "norla/core/CNetRequest.h"

class CThrowingListener : public kx::CBase, public virtual norla::CNetRequest::IDoneListener {
public:
    void onNetRequestDone(norla::CNetRequest*, const kx::CError*) override { throw kx::CError("listener failed"); }
};
