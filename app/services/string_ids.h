/* Numbers of the strings in string_table.inc; the resource compiler reads this header too. */
#pragma once

#define IDS_FAILED 1
#define IDS_ACCESS_DENIED 2
#define IDS_WRONG_PASSWORD 3
#define IDS_INVALID_FORMAT 4
#define IDS_INVALID_PARAMETER 5
#define IDS_FINISHED_WITH_ERRORS 6
#define IDS_FILE_CORRUPTED 7
#define IDS_ERROR 8
#define IDS_RESTORE_COMPLETED 9
#define IDS_BACKUP_COMPLETED 10
#define IDS_IMPORT_COMPLETED 11
#define IDS_EXPORT_COMPLETED 12
