#include "agent/agent.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include "actions/config.h"
#include "actions/version.h"
#include "agent/action_file.h"
#include "agent/reboot.h"
#include "content/current_item.h"
#include "content/status.h"
#include "core/seam.h"
#include "core/timer.h"
#include "core/usb_xapp.h"
#include "download/download.h"
#include "download/wget.h"
#include "schedule/player_state.h"
#include "storage/cleanup.h"
#include "xml/dravikAPI.h"

int playlist_started;

namespace {

int notify_queue = -1;
char data[kSnmpTextSize];  // receives the bridge's replies
int nextSeconds;           // out-parameter of getAutoOnOffMode, kept between passes

// A configuration file has arrived from a USB stick (or was copied from the disk on
// USB_CALL_NOW): check for upgrades, then adopt the file.
void configuration_update(const sMSG_COMMON_FORMAT& msg_usb)
{
    follow_upgrade_result(check_inf_file());  // should a reboot return, carry on
    unlink("/tmp/pelk_version_info.inf");
    int no_media = msg_usb.usbCfg.usbMediaStatus == 0 ? 1 : 0;
    load_call_home_config("/tmp/temp_USB.CONF", no_media, 0);
    unlink("/tmp/temp_USB.CONF");
    send_usbcopy_msg(USB_CONF_DONE);
    playlist_started = no_media;
}

void dispatch(s_MSG_BUF& msg)
{
    // The same bytes, from cmmdId on, seen as the shared notification union.
    sMSG_COMMON_FORMAT msg_usb;
    static_assert(sizeof msg_usb == sizeof msg.cmmdId + sizeof msg.buf);
    std::memcpy(&msg_usb, &msg.cmmdId, sizeof msg_usb);

    switch (msg.cmmdId) {
    case USB_CALL_NOW:
        seam::system("cp -f /mnt/hd3/USB.CONF /tmp/temp_USB.CONF");
        msg.cmmdId = USB_CONF_UPDATE;
        msg_usb.usbCfg.cmmdId = USB_CONF_UPDATE;
        configuration_update(msg_usb);
        break;
    case USB_CONF_UPDATE:
        configuration_update(msg_usb);
        break;
    case USB_COPY_START:
        stop_timer();  // no calls home while the player copies from the stick
        break;
    case USB_COPY_DONE:
        if (timer_stopped) start_timer();
        break;
    case USB_FIRMWARE_CHECK:
        follow_upgrade_result(process_check_version(check_version_line));
        break;
    default:
        break;
    }
    seam::sleep(1);
}

void serve_call_home()
{
    if (download_in_progress()) {
        // Put off until the download ends; the countdown is not re-armed meanwhile.
        initiate_call_home_pending = 1;
        MutexLock lock(timerMutex);
        initiate_call_home = 0;
        return;
    }
    initiate_call_home_pending = 0;
    if (get_command_file(call_home_address, macAddress, "/tmp/callhome.lst"))
        parse_action_file("/tmp/callhome.lst");
    {
        MutexLock lock(timerMutex);
        initiate_call_home = 0;
    }
    // Re-armed from the interval, a failed fetch too; but a countdown the command list
    // armed itself stands: a list that names a new server has it called five seconds
    // later, not a whole interval later.
    if (call_home_timer == 0) start_timer();
    else timer_stopped = 0;
}

void serve_auto_on_off()
{
    int mode = getAutoOnOffMode(&currentCHConfig, &nextSeconds);
    bool content_check_wanted = false;
    if (mode != AutoOnOffMode) {
        AutoOnOffMode = mode;
        if (mode == 0) stop_all_play();
        else content_check_wanted = true;
    }
    MutexLock lock(timerMutex);
    initiate_auto_on_off = 0;
    if (content_check_wanted) initiate_content_check = 1;
    auto_on_off_timer = currentCHConfig.autoOnOffEnable ? nextSeconds + 5 : 0;
}

void serve_send_log()
{
    if (download_in_progress()) {
        initiate_send_log_pending = 1;
        MutexLock lock(timerMutex);
        initiate_send_log = 0;
        return;
    }
    initiate_send_log_pending = 0;
    seam::sleep(2);
    transfer_log_file(&currentCHConfig);
    int t = compute_log_timer(&currentCHConfig, 0, nullptr);
    MutexLock lock(timerMutex);
    initiate_send_log = 0;
    send_log_timer = t;
}

// Nothing sets initiate_reboot and the timer thread clears it, so this never runs;
// it is kept as the device has always had it.
void serve_reboot()
{
    send_snmp_command(kSnmpSetType, kRebootCommand, data);
    seam::sleep(5);
    MutexLock lock(rebootMutex);
    reboot_time = static_cast<int>(lastTOD + 120);
}

void serve_cleanup()
{
    if (download_in_progress()) {
        initiate_cleanup_pending = 1;
        initiate_cleanup = 0;
        return;
    }
    initiate_cleanup = 0;
    initiate_cleanup_pending = 0;
    process_cleanup(&currentContent);
}

}  // namespace

void agent_start_up(void)
{
    dA_Initialize();
    download_init();
    end_leftover_transfers();
    player_state_clear(&gPlayerState);

    currentCHConfig.id[0] = '\0';
    currentCHConfig.autoOnOffEnable = 0;
    currentCHConfig.aooItemCount = 0;
    currentCHConfig.primaryTS[0] = '\0';
    currentCHConfig.secondaryTS[0] = '\0';
    currentCHConfig.loggingEnable = 0;
    currentCHConfig.logInterval = 0;
    currentCHConfig.logOffset = 0;
    currentCHConfig.logAutoOffset = 0;
    currentCHConfig.timezone = 0;
    if (dA_ParseConfigurationCH("/mnt/hd3/cfgdata.txt") == 0)
        currentCHConfig = *dA_ConfigurationCH();

    // -1 makes the first evaluation in the loop count as a change.
    AutoOnOffMode = getAutoOnOffMode(&currentCHConfig, &nextSeconds);
    if (AutoOnOffMode == 0) AutoOnOffMode = -1;
    if (currentCHConfig.autoOnOffEnable) auto_on_off_timer = 30;

    currentContent.id[0] = '\0';
    currentContent.name[0] = '\0';
    currentContent.plcount = 0;
    currentContent.filecount = 0;
    currentContent.servercount = 0;
    g_saved_content_id[0] = '\0';
    if (dA_ParseContent("/mnt/hd3/contentdata.txt") == 0) {
        currentContent = *dA_Content();
        std::memcpy(g_saved_content_id, currentContent.id, sizeof g_saved_content_id);
        content_check_timer = 20;
    }

    get_mac_address(macAddress);
    send_log_timer = compute_log_timer(&currentCHConfig, 1, macAddress);

    call_home_address[0] = '\0';
    load_call_home_config("/mnt/hd3/USB.CONF", 0, 1);
    // The first call home comes ten seconds after start, whatever the interval.
    if (call_home_timer > 0) call_home_timer = 10;

    init_snmp();

    int ret = pthread_mutex_init(&timerMutex, nullptr);
    if (ret != 0)
        std::printf("timerMutex init returned non-zero, ret = %d, errno = %d\n", ret, errno);
    ret = pthread_mutex_init(&rebootMutex, nullptr);
    if (ret != 0)
        std::printf("rebootMutex init returned non-zero, ret = %d, errno = %d\n", ret, errno);

    lastTOD = static_cast<unsigned>(get_tod_in_sec());
    pthread_t timer_thread;
    ret = pthread_create(&timer_thread, nullptr, timer_handler, nullptr);
    if (ret != 0) std::printf("timer thread could not be started, ret = %d\n", ret);
    else pthread_detach(timer_thread);

    notify_queue = msgget(kNotifyQueueKey, IPC_CREAT | 0666);
    if (notify_queue < 0) std::perror("msgget of the notification queue failed");

    initialize_reboot_timer();
}

void agent_main_loop_pass(void)
{
    if (initiate_call_home) serve_call_home();
    if (initiate_content_check) process_content_check(&currentContent);
    if (initiate_auto_on_off) serve_auto_on_off();
    // With logging disabled the flag is deliberately left standing.
    if (initiate_send_log && currentCHConfig.loggingEnable) serve_send_log();
    if (initiate_reboot) serve_reboot();
    if (initiate_post_status)
        process_post_status(call_home_address, macAddress, &currentContent, &gPlayerState);
    if (initiate_download_check) process_download_check();
    if (initiate_cleanup) serve_cleanup();

    s_MSG_BUF msg{};
    // At most one waiting notification of type 31, never blocking; a longer text is cut
    // to the command id and the first 52 bytes of its buffer.
    if (msgrcv(notify_queue, &msg, kUsbNotifyReadSize, kUsbNotifyType,
               IPC_NOWAIT | MSG_NOERROR) == -1) {
        seam::sleep(1);
        return;
    }
    dispatch(msg);
}

void agent_run(void)
{
    agent_start_up();
    for (;;) agent_main_loop_pass();
}
