#pragma once

/* Numbers shared by the resource script and the code. Plain macros: the resource compiler reads this file
 * too. */

/* The desktop's one font, of dialogs and list alike; points and name. */
#define FONT_POINTS 9
#define FONT_NAME "Segoe UI"

#define IDI_PROGRAM 1
#define IDI_MOUNTED 2 /* of the notification area, while a volume is mounted */

/* The extra toolbar image, 16 and 24 pixels. */
#define IDB_CLOSE_VOLUME 1
#define IDB_CLOSE_VOLUME_LARGE 2

#define IDR_MENU_BAR 1
#define IDR_MENU_LIST 2       /* pop-up with no row selected */
#define IDR_MENU_TRAY 4       /* pop-up of the notification icon */
#define IDR_MENU_VOLUME 31003 /* pop-up on a selected row */
#define IDR_ACCELERATORS 2

/* Commands. */
#define IDM_NEW 1001
#define IDM_OPEN 1002
#define IDM_CLOSE 1003
#define IDM_DELETE 1004
#define IDM_EXIT 1005
#define IDM_MOUNT 1006
#define IDM_DISMOUNT 1007
#define IDM_CHANGE_PASSWORD 1008
#define IDM_PROPERTIES 1009
#define IDM_CONTENTS 1010
#define IDM_ABOUT 1012
#define IDM_COPY_ADDRESS 1020
#define IDM_SHOW_WINDOW 1021
#define IDM_DISMOUNT_ALL 1022
#define IDM_DISMOUNT_EXIT 1023
#define IDM_REFRESH 1024
#define IDM_ON_SUSPEND 1025
#define IDM_ON_LOG_OFF 1026
#define IDM_ON_LOCK 1027
#define IDM_ATTACH_DRIVE 1028
#define IDM_DETACH_DRIVE 1029
#define IDM_ATTACH_AFTER_MOUNTING 1030

/* The dialog of New, Mount and Properties. */
#define IDD_VOLUME 3
#define IDC_VOLUME_LABEL 101
#define IDC_VOLUME 102
#define IDC_SIZE_LABEL 103
#define IDC_SIZE_VALUE 104
#define IDC_SIZE_SPIN 105
#define IDC_SIZE_UNIT 106
#define IDC_CIPHER_LABEL 107
#define IDC_CIPHER 108
#define IDC_KEY_LABEL 109
#define IDC_KEY 110
#define IDC_PASSWORD_LABEL 111
#define IDC_PASSWORD 112
#define IDC_TIMEOUT_LABEL 113
#define IDC_TIMEOUT 114
#define IDC_TIMEOUT_SPIN 115
#define IDC_TIMEOUT_UNIT 116
#define IDC_REPEAT_LABEL 117
#define IDC_REPEAT 118
#define IDC_STRENGTH 119 /* in the dialog of a new password, too */

#define IDD_CHANGE_PASSWORD 1008
#define IDC_OLD_LABEL 10
#define IDC_OLD_PASSWORD 11
#define IDC_NEW_LABEL 12
#define IDC_NEW_PASSWORD 13
#define IDC_CONFIRM_LABEL 14
#define IDC_CONFIRM_PASSWORD 15

#define IDD_ABOUT 1012
#define IDC_ABOUT_ICON 20
#define IDC_ABOUT_NAME 21
#define IDC_ABOUT_COPYRIGHT 22
#define IDC_ABOUT_CIPHERS 23
#define IDC_ABOUT_KERNELS 24

#define IDD_ATTACH_BY_HAND 1028
#define IDC_BY_HAND_TEXT 30
#define IDC_BY_HAND_LINES 31
#define IDC_BY_HAND_COPY 32

#define IDS_NEW 11001
#define IDS_MOUNT 11006
#define IDS_PROPERTIES 11009
