#include "export/connection.h"

namespace quilla {

void Connection::Dismiss() {
    state = State::Dismissed;
    socket_.Shutdown();
}

void Connection::RunThread(void* context) {
    auto* const connection = static_cast<Connection*>(context);
    connection->server_.Serve(*connection);
    connection->server_.Finish(*connection);
}

} // namespace quilla
