// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DLT_ACTIVATION_DLT_FLAG_FILE_HPP
#define STRATA_DLT_ACTIVATION_DLT_FLAG_FILE_HPP

#include <string>

// Where the marker file that switches DLT logging on is looked for. Its existence and
// readability are its whole content.
std::string dlt_flag_file_path();

// Whether the marker file exists and can be opened for reading.
bool dlt_flag_file_readable();

#endif
