// The replies that a scenario gives in place of the tables, or for the further requests.
#pragma once

#include "engine/scenario/json_fields.h"
#include "engine/scenario/scenario_script.h"
#include "engine/source.h"

namespace idpfwd {

// Reads one rule; the fields' errors are thrown as theirs.
ReplyRule readReplyRule(Fields &fields);

// The reply of a rule; what is missing in it comes from the tables' own reply, if there is one.
Reply applyRule(const ReplyRule &rule, std::optional<Reply> tables);

} // namespace idpfwd
