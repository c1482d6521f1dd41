#pragma once
// Media deletion commands of the action files.
//
//   delete_file(line), delete_video, delete_image, delete_all, delete_usb_config
void delete_file(char* line);
void delete_video(void);
void delete_image(void);
void delete_all(void);
void delete_usb_config(void);
int check_if_video(const char* extension);
