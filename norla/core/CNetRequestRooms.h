#pragma once

#include "kx/containers/TList.h"
#include "norla/core/CAsyncOutcome.h"
#include "norla/core/CConnectionDemands.h"
#include "norla/core/CEasyHandle.h"
#include "norla/core/CFirstError.h"
#include "norla/core/CNetHeaders.h"
#include "norla/core/CNetRequest.h"
#include "norla/core/CNetStringList.h"
#include "norla/core/CRequestURL.h"
#include "norla/core/CResponse.h"
#include "norla/core/CRunState.h"
#include "norla/core/CSending.h"
#include "norla/core/CTransferSockets.h"

namespace norla {

/// What a transfer consists of: a room for each kind of knowledge, with the request as the one door.
struct CNetRequest::CRooms {
    CRunState run;
    CRequestURL url;
    CResponse response;
    CFirstError callbackError; // of the current transfer
    CAsyncOutcome outcome;
    kx::P<IDoneListener> doneListener;
    kx::TList<kx::P<kx::IBase>> keptObjects;
    // libcurl's lists, which it does not copy
    kx::P<CNetHeaders> customHeaders;
    kx::P<CNetStringList> ftpPreCommands;
    kx::P<CNetStringList> ftpPostCommands;
    CSending sending{handle};
    CConnectionDemands demands{handle};
    CTransferSockets sockets{handle};
    CEasyHandle handle; // goes first, while everything that its callbacks use is still there
};

} // namespace norla
