// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "base/text_folding.h"
#include "platform/image_codec.h"
#include "platform/main_queue.h"
#include "platform/pasteboard.h"
#include "platform/serial_queue.h"
#include "platform/user_defaults.h"

namespace vexil {

// What the panel needs of the system. All of it outlives the panel, and the codec outlives the pasteboard too.
struct PanelServices {
    MainQueue& mainQueue;
    Pasteboard& pasteboard;
    ImageCodec& imageCodec;
    SerialQueue& worker; // for what would hold up the main queue
    UserDefaults& defaults;
    text::CaseRules caseRules = text::CaseRules::common; // of the person's language
};

} // namespace vexil
