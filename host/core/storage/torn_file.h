/* Host files whose first page a loss of power left in pieces. */
#pragma once

#include <string>

namespace kestrel::host {

/** Whether what lies beside a file tells that it is a host's, or was empty, before a loss of power tore its first page:
    SQLite makes the page good then, while by the page alone the file looks like another's. Looks at the files only. */
bool IsTornHostFile(const std::string &path);

}  // namespace kestrel::host
