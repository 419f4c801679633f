#pragma once

#include "base/messages.h"

/// The kit's own messages, beside those of the base.
#define MESSAGE(Name, Id, Text) inline constexpr TMessage Name = TMessage{Id};
#include "kit/kit_messages.inc"
#undef MESSAGE
