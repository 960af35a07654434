#pragma once
#include "news/transport/NewsTransport.h"

// Parses one whole article (headers, blank line, body; CR LF lines) into its message object.
// Bodies stay byte-exact and still transfer-encoded.
NewsTransportMessage parseArticle(const QByteArray &raw);
