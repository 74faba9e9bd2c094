#pragma once

#include <functional>
#include <string>

namespace tools_test {

// Each runs `work` on a thread of its own, which sees another world than the rest of the test, and
// so do the processes it starts. Returns false if the system does not let us: the test is skipped.

/// A network of its own, in which there is 127.0.0.1 and nothing else.
bool in_own_network(const std::function<void()>& work);

/// The same without 127.0.0.1: nothing can be sent anywhere.
bool in_no_network(const std::function<void()>& work);

/// A small disk at the directory, which is there already: "size=65536,nr_inodes=10".
bool with_disk(const std::string& options, const std::string& directory,
               const std::function<void()>& work);

/// Without the rights of root, if we have them.
bool as_nobody(const std::function<void()>& work);

}  // namespace tools_test
