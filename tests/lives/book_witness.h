#pragma once

#include "market/engine.h"

namespace lives {

/// What holds of every book between two turns, whatever happened: each resting order stands in one
/// queue, on its side, at its price; its open shares are above 0 and, of a client's, ordered = open
/// + done; the sums of the queues are the sizes; no price is without orders; the feed was last
/// shown just that. `may_cross`: a script has cut a fill, which may leave a book crossed. Throws
/// Broken.
void look_at_books(quorl::Engine& engine, bool may_cross);

}  // namespace lives
