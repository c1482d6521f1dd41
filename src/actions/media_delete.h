#pragma once
// Media deletion commands of the action files. Partitions 3 and 4 are made writable
// around each deletion; files go through `rm -f`, whose result is not examined.
//
//   delete_file(line)      "DeleteFile,name.ext": video extensions from the video
//                          folder, everything else from the picture folder; wild cards
//                          in the name act as in the shell, nothing else in it does,
//                          and a name that climbs out of its folder ("..") is refused
//   delete_video, delete_image   everything in one folder, under a running player
//   delete_all             stops playback first, then both folders
//   delete_usb_config      stops calls home and removes /mnt/hd3/USB.CONF
//   check_if_video(ext)    1 for a video extension, without regard to case
void delete_file(char* line);
void delete_video(void);
void delete_image(void);
void delete_all(void);
void delete_usb_config(void);
int check_if_video(const char* extension);
