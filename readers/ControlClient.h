// The client side of the agent's control socket: one command line out, one
// reply line back ("ok ..." or "error: ..."). Readers use it to ask the agent
// for clears and on-demand updates; the agent's own server lives in agent/.
#pragma once

#include <sys/un.h>

#include <string>

namespace Readers {

// A Unix-domain socket address for `path`; raises std::runtime_error when the
// path does not fit.
sockaddr_un unixSocketAddress(const std::string& path);

// "" when `ns` is a usable namespace name (1-64 letters, digits, '_' or '-'),
// else the one-line reason. Table and socket names are built from it.
std::string namespaceProblem(const std::string& ns);

// Where an agent of namespace `ns` listens unless told otherwise.
std::string defaultSocketPath(const std::string& ns);

// Sends one command and returns the reply (without the newline). Raises
// std::runtime_error naming the socket when the agent cannot be reached, does
// not answer within `timeoutSeconds`, or closes the connection.
std::string sendCommand(const std::string& path, const std::string& line,
                        double timeoutSeconds = 5);

}  // namespace Readers
