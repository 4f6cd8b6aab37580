// The keys under which Lumeo keeps its settings in the user defaults. Their
// spelling is what is on users' disks (and in old backups), so a key is never
// renamed; a constant that starts with "k" keeps the key's own spelling.
#pragma once

namespace lumeo {

// Launch and first start.
inline constexpr char kMoodFirstStart[] = "MoodFirstStart";
inline constexpr char kMigration2in3[] = "migration2in3";
inline constexpr char kTutorialCompleted[] = "tutorialCompleted";
inline constexpr char kTutorialSyncCompleted[] = "tutorialSyncCompleted";

// Capture.
inline constexpr char kMoodRecordInCreation[] = "MoodRecordInCreation";  // object URI of an unfinished record
inline constexpr char kIsFirstOpenCaptureEdit[] = "isFirstOpenCaptureEdit";
inline constexpr char kTemplateKey[] = "kTemplateKey";
inline constexpr char kReminderTemplateKey[] = "kReminderTemplateKey";
inline constexpr char kIsMapAutomaticSelectLocation[] = "kIsMapAutomaticSelectLocation";

// Backup.
inline constexpr char kMoodDropboxReminderEnabled[] = "MoodDropboxReminderEnabled";
inline constexpr char kMoodDropboxSynchronizeEnabled[] = "MoodDropboxSynchronizeEnabled";
inline constexpr char kMoodDropboxCounter[] = "MoodDropboxCounter";
inline constexpr char kLastBackupDateKey[] = "kLastBackupDateKey";
inline constexpr char kRecentBackupMissedLastNotificationDateKey[] =
    "kRecentBackupMissedLastNotificationDateKey";
inline constexpr char kDropboxLogin[] = "DropboxLogin";

// Sync.
inline constexpr char kMoodSyncingEnabled[] = "MoodSyncingEnabled";
inline constexpr char kMoodSyncingService[] = "MoodSyncingService";
inline constexpr char kIDMCloudServiceUserDefaultKey[] = "IDMCloudServiceUserDefaultKey";
inline constexpr char kIDMLastSyncing[] = "IDMLastSyncing";
inline constexpr char kSubscriptionSyncID[] = "kSubscriptionSyncID";

// Colours and charts.
inline constexpr char kMoodGradientEnabled[] = "MoodGradientEnabled";
inline constexpr char kMoodGradientFromColor[] = "MoodGradientFromColor";
inline constexpr char kMoodGradientMiddleColor[] = "MoodGradientMiddleColor";
inline constexpr char kMoodGradientToColor[] = "MoodGradientToColor";
inline constexpr char kMoodGraphSmoothed[] = "MoodGraphSmoothed";
inline constexpr char kGraphIncreaseWidth[] = "kGraphIncreaseWidth";
inline constexpr char kMoodSummaryChartType[] = "kMoodSummaryChartType";
inline constexpr char kMoodHistorySelectedDefaultIndex[] = "kMoodHistorySelectedDefaultIndex";
inline constexpr char kSwipeUp[] = "swipeUp";
inline constexpr char kSwipeViewHidden[] = "swipeViewHidden";

// Reminders.
inline constexpr char kAlarm[] = "alarm";  // array of reminder dictionaries
inline constexpr char kRemindersTextKey[] = "kRemindersTextKey";

// Export.
inline constexpr char kCreatedPDF[] = "CreatedPDF";
inline constexpr char kExportFrom[] = "ExportFrom";
inline constexpr char kExportTo[] = "ExportTo";

// Watch and lock.
inline constexpr char kSkipDictationStep[] = "kSkipDictationStep";
inline constexpr char kSkipHashtagsStep[] = "kSkipHashtagsStep";
inline constexpr char kTouchIDEnabledForThisAppKey[] = "TouchIDEnabledForThisAppKey";

}  // namespace lumeo
