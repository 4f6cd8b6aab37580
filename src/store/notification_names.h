// Names of the notifications by which screens and services tell each other
// of changes, all posted on NotificationCenter::defaultCenter(). Each
// constant is spelled as the name it holds, odd ones included, because
// observers elsewhere match the text.
#pragma once

namespace lumeo {

// Posted by every saveContext, changed or not: the one signal to refresh.
inline constexpr char MoodModelHasChangedNotification[] = "MoodModelHasChangedNotification";
inline constexpr char MoodStopMigrationNotification[] = "MoodStopMigrationNotification";
inline constexpr char MoodFailMigrationNotification[] = "MoodFailMigrationNotification";
inline constexpr char MoodBackgroundEndedNotification[] = "MoodBackgroundEndedNotification";
inline constexpr char MoodBackupWasLoadedNotification[] = "MoodBackupWasLoadedNotification";
inline constexpr char MoodDeleteRecordNotification[] = "MoodDeleteRecordNotification";
inline constexpr char MoodPreDeleteRecordNotification[] = "MoodPreDeleteRecordNotification";
inline constexpr char MoodTagDeleteRecordNotification[] = "MoodTagDeleteRecordNotification";
inline constexpr char MoodGraphSmoothChangedNotification[] = "MoodGraphSmoothChangedNotification";
inline constexpr char MoodGraphLineWidthChangedNotification[] = "MoodGraphLineWidthChangedNotification";
inline constexpr char MoodLocationObtainedNotification[] = "MoodLocationObtainedNotification";
// Posted with the number -1 as object when the tag offer list closes.
inline constexpr char MoodTagEditStartNotification[] = "MoodTagEditStartNotification";

inline constexpr char DropboxLinkedNotification[] = "DropboxLinkedNotification";
inline constexpr char DropboxLinkCanceledNotification[] = "DropboxLinkCanceledNotification";

inline constexpr char IDMSyncActivityDidBegin[] = "IDMSyncActivityDidBegin";
inline constexpr char IDMSyncActivityDidEnd[] = "IDMSyncActivityDidEnd";
inline constexpr char IDMSyncActivityDidDataMergingEndNotification[] =
    "IDMSyncActivityDidDataMergingEndNotification";
// Posted with the image's file name (a std::string) as object.
inline constexpr char SyncImageSaved[] = "SyncImageSaved";

}  // namespace lumeo
