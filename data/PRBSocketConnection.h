// Where a buffer goes that is not meant for the Java side. The agent itself has none.
#ifndef PRB_DATA_PRBSOCKETCONNECTION_H
#define PRB_DATA_PRBSOCKETCONNECTION_H

#include "core/PRBReturnCode.h"

class PRBBuffer;

class PRBSocketConnection {
public:
    virtual ~PRBSocketConnection() = default;
    virtual PRBReturnCode send(PRBBuffer& buffer) = 0; // the whole buffer
};

#endif
