#include "resources/StringTable.h"

#include <iterator>

namespace {

struct StringEntry {
    UINT id;
    const char* text;
};

// Slots: "Normal", Chinese, English, "Japanese" (201: the menu label).
constexpr StringEntry kStringTable[] = {
    {1, "Tempvox Control"},
    {2, "Tempvox Property Page"},
    {200, "General"},
    {201, "保存\r保存\rSave\rSave"},
    {202, "Normal\r波形未选中,不能保存!\rWave unselected, unable to be saved!\rJapanese"},
    {203, "Normal\r创建显示wav波形窗口失败，请确认参数是否有误!\rCreating wav wave display window failed! Please make sure whether parameters are correct!\rJapanese"},
    {204, "Normal\r需要绘制波形的wav文件不存在!\rThe wav file to be drawn in the wave form does not exist!\rJapanese"},
    {205, "Normal\r音频文件路径为空，加载失败!\rAudio file path is empty, loading failed!\rJapanese"},
    {206, "Normal\r不支持的音频格式,对不起，不能播放!\rUnsupported audio format! Sorry, this audio file cannot be played!\rJapanese"},
    {207, "Normal\r音频文件打开失败，请确认文件是否存在或正在被其他程序使用中!\rOpening audio file failed! Please make sure whether the file exists or is occupied by other programs!\rJapanese"},
    {208, "Normal\r装载音频文件失败!\rLoading audio file failed!\rJapanese"},
    {209, "Normal\r打开音频设备失败!\rOpening audio device failed!\rJapanese"},
    {210, "Normal\r准备缓冲区失败!\rPreparing buffer area failed!\rJapanese"},
    {211, "Normal\r不支持该音频格式!\rThis audio format is unsupported!\rJapanese"},
    {212, "Normal\r从ftp服务器上下载文件失败!\rDownloading file from ftp server failed!\rJapanese"},
    {213, "Normal\r指定的音频文件不存在，不能播放!\rThe specified audio file does not exist! Unable to be played!\rJapanese"},
    {214, "Normal\r创建wav文件失败!\rCreating wav file failed!\rJapanese"},
    {215, "Normal\r不支持的音频格式！对不起，不能打开干扰音文件!\rUnsupported audio format! Sorry, niose file unabled to be opened!\rJapanese"},
    {216, "Normal\r删除新创建的音频文件失败!\rDeleting newly created audio file failed!\rJapanese"},
    {217, "Normal\r拷贝音频文件失败!\rAudio file copy failed!\rJapanese"},
    {218, "Normal\r波形未选中,不能保存!\rWave unselected, unable to be saved!\rJapanese"},
    {219, "Normal\r光标位置不存在!\rThe cursor position does not exist!\rJapanese"},
    {220, "Normal\r波形未选中,调用失败!\rWave unselected, calling failed!\rJapanese"},
};

}  // namespace

const char* LoadStringResource(UINT id)
{
    for (const StringEntry& entry : kStringTable) {
        if (entry.id == id) return entry.text;
    }
    return nullptr;
}
