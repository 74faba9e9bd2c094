#include "certify/record/feed_capture.h"

#include <netinet/in.h>

#include "tools/capture/udp_frame.h"

namespace certify {

void FeedCapture::heard(quorl::client::ByteView packet, TimeNs at) {
  const tools::Endpoint from{.address = INADDR_LOOPBACK, .port = group_.port};
  file_.write(at, tools::ethernet_frame(from, group_, packet));
}

}  // namespace certify
