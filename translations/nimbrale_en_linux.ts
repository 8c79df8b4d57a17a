<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en" sourcelanguage="en">
<context>
    <name>AppDelegate</name>
    <message>
        <source>Nimbrale needs permission to record your screen. Turn it on in System Settings → Privacy &amp; Security → Screen &amp; System Audio Recording, then quit and reopen the app.</source>
        <translation>Nimbrale needs permission to record your screen. Turn it on in your desktop's privacy settings, then quit and reopen the app.</translation>
    </message>
    <message>
        <source>Open System Settings</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>Nimbrale records its own screen, which couldn't be created on this Mac.</source>
        <translation>Nimbrale records its own screen, which couldn't be created on this computer.</translation>
    </message>
    <message>
        <source>To record your voice, allow Nimbrale in System Settings → Privacy &amp; Security → Microphone. Or turn the microphone off in Settings → Recording.</source>
        <translation>To record your voice, allow Nimbrale to use the microphone in your desktop's privacy settings. Or turn the microphone off in Settings → Recording.</translation>
    </message>
</context>
<context>
    <name>GeneralSettings</name>
    <message>
        <source>Hold ⌘ while dragging to disable snapping temporarily.</source>
        <translation>Hold Super while dragging to disable snapping temporarily.</translation>
    </message>
    <message>
        <source>Hold ⌘ while dragging to enable snapping temporarily.</source>
        <translation>Hold Super while dragging to enable snapping temporarily.</translation>
    </message>
</context>
<context>
    <name>WebcamOverlay</name>
    <message>
        <source>To show your webcam, allow Nimbrale in System Settings → Privacy &amp; Security → Camera, then turn the webcam on again in Settings.</source>
        <translation>To show your webcam, allow Nimbrale to use the camera in your desktop's privacy settings, then turn the webcam on again in Settings.</translation>
    </message>
    <message>
        <source>Open System Settings</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>WebcamSettings</name>
    <message>
        <source>Nimbrale finds you in the picture and blurs everything behind you. This takes extra processing, most noticeably on Intel Macs.</source>
        <translation>Nimbrale finds you in the picture and blurs everything behind you. This takes extra processing.</translation>
    </message>
    <message>
        <source>Nimbrale finds you in the picture and removes everything behind you. This takes extra processing, most noticeably on Intel Macs.</source>
        <translation>Nimbrale finds you in the picture and removes everything behind you. This takes extra processing.</translation>
    </message>
</context>
<context>
    <name>RecordingSettings</name>
    <message>
        <source>Sound from m&amp;y Mac</source>
        <translation>Sound from m&amp;y computer</translation>
    </message>
</context>
</TS>
