// The storage manager's disk events. Their display texts are the templates of the same key in
// the localized texts section "disk_events".
#include "platform/disk_codes.h"

const DiskEventCode kDiskEventCodes[] = {
    // Self-tests the administrator or the schedule started; "test" is "quick" or "extended".
    {"smart_test_passed", "test", "info"},
    {"smart_test_failed", "test", "err"},
    {"smart_test_aborted", "test", "warning"},
    // Media wear: counts before and after, and thresholds.
    {"bad_sector_increased", "from,to", "warning"},
    {"pending_sectors_found", "count", "warning"},
    {"reallocated_sector_limit", "count,limit", "err"},
    {"io_errors_detected", "count", "err"},
    // Presence of the drive in its bay.
    {"drive_removed", "", "warning"},
    {"drive_inserted", "", "info"},
    {"drive_initialized", "", "info"},
    {"drive_crashed", "", "err"},
    // Temperature in degrees Celsius against the configured threshold.
    {"temperature_over_threshold", "temperature,threshold", "warning"},
    {"temperature_back_to_normal", "temperature", "info"},
    // Health and maintenance.
    {"health_status_changed", "from,to", "warning"},
    {"firmware_updated", "from,to", "info"},
    {"secure_erase_completed", "", "info"},
    {"spin_up_retried", "count", "warning"},
    {"power_on_hours_reached", "hours", "info"},
    {nullptr, nullptr, nullptr},
};
