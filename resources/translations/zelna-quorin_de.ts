<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>MainWindow</name>
    <message>
        <source>&amp;Enable ZELNA Quorin</source>
        <translation>ZELNA Quorin &amp;aktivieren</translation>
    </message>
    <message>
        <source>Enable ZELNA Quorin</source>
        <translation>ZELNA Quorin aktivieren</translation>
    </message>
    <message>
        <source>Start &amp;automatically at login</source>
        <translation>Automatisch beim Anmelden &amp;starten</translation>
    </message>
    <message>
        <source>Start automatically at login</source>
        <translation>Automatisch beim Anmelden starten</translation>
    </message>
    <message>
        <source>Disable &amp;previews in the file manager</source>
        <translation>&amp;Vorschauen im Dateimanager deaktivieren</translation>
    </message>
    <message>
        <source>Disable previews in the file manager</source>
        <translation>Vorschauen im Dateimanager deaktivieren</translation>
    </message>
    <message>
        <source>Applying the preview setting</source>
        <translation>Die Vorschau-Einstellung wird übernommen</translation>
    </message>
    <message>
        <source>Where the extension is allowed</source>
        <translation>Wo die Erweiterung erlaubt wird</translation>
    </message>
    <message>
        <source>Update &amp;channel:</source>
        <translation>Update-&amp;Kanal:</translation>
    </message>
    <message>
        <source>Update channel</source>
        <translation>Update-Kanal</translation>
    </message>
    <message>
        <source>Stable</source>
        <translation>Stabil</translation>
    </message>
    <message>
        <source>Version</source>
        <translation>Version</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>&amp;Hilfe</translation>
    </message>
    <message>
        <source>Open the online help</source>
        <translation>Die Online-Hilfe öffnen</translation>
    </message>
    <message>
        <source>Runs the ZELNA Quorin service now and at every login; turned off, the service is stopped the next time this program starts</source>
        <translation>Führt den ZELNA-Quorin-Dienst jetzt und bei jeder Anmeldung aus; ausgeschaltet wird der Dienst beim nächsten Start dieses Programms beendet</translation>
    </message>
    <message>
        <source>Shows whether the service starts at login; it follows Enable</source>
        <translation>Zeigt, ob der Dienst bei der Anmeldung startet; folgt „Aktivieren“</translation>
    </message>
    <message>
        <source>Tells the file manager not to show previews of cloud files</source>
        <translation>Weist den Dateimanager an, keine Vorschauen von Cloud-Dateien anzuzeigen</translation>
    </message>
    <message>
        <source>The update channel this program follows</source>
        <translation>Der Update-Kanal, dem dieses Programm folgt</translation>
    </message>
    <message>
        <source>Opens the online help in the web browser</source>
        <translation>Öffnet die Online-Hilfe im Webbrowser</translation>
    </message>
</context>
<context>
    <name>SUUpdateAlert</name>
    <message>
        <source>Software Update</source>
        <translation>Softwareaktualisierung</translation>
    </message>
    <message>
        <source>A new version of %1 is available!</source>
        <translation>Eine neue Version von %1 ist verfügbar!</translation>
    </message>
    <message>
        <source>%1 %2 is now available—you have %3. Would you like to download it now?</source>
        <translation>%1 %2 ist jetzt verfügbar – Sie haben %3. Möchten Sie die neue Version jetzt herunterladen?</translation>
    </message>
    <message>
        <source>Release notes</source>
        <translation>Versionshinweise</translation>
    </message>
    <message>
        <source>&amp;Release Notes:</source>
        <translation>&amp;Versionshinweise:</translation>
    </message>
    <message>
        <source>What changed in this version</source>
        <translation>Was sich in dieser Version geändert hat</translation>
    </message>
    <message>
        <source>&amp;Skip This Version</source>
        <translation>Diese Version ü&amp;berspringen</translation>
    </message>
    <message>
        <source>Remind Me &amp;Later</source>
        <translation>&amp;Später erinnern</translation>
    </message>
    <message>
        <source>&amp;Download</source>
        <translation>&amp;Herunterladen</translation>
    </message>
    <message>
        <source>Do not offer this version again</source>
        <translation>Diese Version nicht mehr anbieten</translation>
    </message>
    <message>
        <source>Close this window; a later check offers the version again</source>
        <translation>Schließt dieses Fenster; eine spätere Prüfung bietet die Version erneut an</translation>
    </message>
    <message>
        <source>Open the download page in the web browser</source>
        <translation>Öffnet die Download-Seite im Webbrowser</translation>
    </message>
    <message>
        <source>The release notes could not be loaded.</source>
        <translation>Die Versionshinweise konnten nicht geladen werden.</translation>
    </message>
    <message>
        <source>Loading the release notes…</source>
        <translation>Versionshinweise werden geladen …</translation>
    </message>
</context>
<context>
    <name>ViewController</name>
    <message>
        <source>Make sure ZELNA Quorin is allowed under: System Settings &gt; Privacy &amp; Security &gt; Extensions &gt; Added extensions &gt; ZELNA Quorin Service.</source>
        <translation>Stellen Sie sicher, dass ZELNA Quorin erlaubt ist unter: Systemeinstellungen &gt; Datenschutz &amp; Sicherheit &gt; Erweiterungen &gt; Hinzugefügte Erweiterungen &gt; ZELNA Quorin Service.</translation>
    </message>
    <message>
        <source>Make sure ZELNA Quorin is allowed under: System Preferences &gt; Extensions &gt;&#xa0; Finder Extensions &gt; MacQuorinFinder.</source>
        <translation>Stellen Sie sicher, dass ZELNA Quorin erlaubt ist unter: Systemeinstellungen &gt; Erweiterungen &gt; Finder-Erweiterungen &gt; MacQuorinFinder.</translation>
    </message>
    <message>
        <source>Version: </source>
        <translation>Version: </translation>
    </message>
</context>
<context>
    <name>ZLFileManager</name>
    <message>
        <source>no permission to folders</source>
        <extracomment>When a user do not have premission to one or more folders</extracomment>
        <translation>keine Berechtigung für die Ordner</translation>
    </message>
</context>
</TS>
