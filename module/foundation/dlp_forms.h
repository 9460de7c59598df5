// The forms of the data-loss-prevention documents in the configuration database.
#pragma once

namespace updkrx {

/** In the order in which their documents are upgraded. */
inline constexpr const char* DlpForms[] = {
    "dictionary", "entity", "template", "dictionary_type", "entity_type", "industry", "region", "validator",
};

} // namespace updkrx
