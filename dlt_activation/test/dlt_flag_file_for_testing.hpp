#ifndef STRATA_DLT_ACTIVATION_TEST_DLT_FLAG_FILE_FOR_TESTING_HPP
#define STRATA_DLT_ACTIVATION_TEST_DLT_FLAG_FILE_FOR_TESTING_HPP

#include <string>

// Points the marker file check at another path. For tests only: the launcher itself
// always uses the fixed path of the target.
void set_dlt_flag_file_path_for_testing(const std::string& path);

#endif
