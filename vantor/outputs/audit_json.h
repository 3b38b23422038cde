// --json of an audit; docs/korva.schema.json describes each record.
#pragma once

#include "outputs/audit_facts.h"
#include "outputs/output_file.h"

// Each record reaches the file as a whole before its function returns.
void json_audit_header(output_file &out, const run_request &request, const audit_facts &facts);
void json_audit_finding(output_file &out, const audit_finding &finding,
                        const allowed_finding *allowed);

// Indicators, PIDs and programs, after audit_end().
void json_audit_records(output_file &out, audit_t audit, const audit_facts &facts);

// `allowed`: the baseline; what it has told is left out of the fails.
void json_audit_report(output_file &out, const audit_facts &facts, const baseline &allowed);
