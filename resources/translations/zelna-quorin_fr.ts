<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr_FR">
<context>
    <name>MainWindow</name>
    <message>
        <source>&amp;Enable ZELNA Quorin</source>
        <translation>&amp;Activer ZELNA Quorin</translation>
    </message>
    <message>
        <source>Enable ZELNA Quorin</source>
        <translation>Activer ZELNA Quorin</translation>
    </message>
    <message>
        <source>Start &amp;automatically at login</source>
        <translation>Lancer automatiquement à la &amp;connexion</translation>
    </message>
    <message>
        <source>Start automatically at login</source>
        <translation>Lancer automatiquement à la connexion</translation>
    </message>
    <message>
        <source>Disable &amp;previews in the file manager</source>
        <translation>Désactiver les a&amp;perçus dans le gestionnaire de fichiers</translation>
    </message>
    <message>
        <source>Disable previews in the file manager</source>
        <translation>Désactiver les aperçus dans le gestionnaire de fichiers</translation>
    </message>
    <message>
        <source>Applying the preview setting</source>
        <translation>Application du réglage des aperçus</translation>
    </message>
    <message>
        <source>Where the extension is allowed</source>
        <translation>Où l’extension est autorisée</translation>
    </message>
    <message>
        <source>Update &amp;channel:</source>
        <translation>Ca&amp;nal de mise à jour&#xa0;:</translation>
    </message>
    <message>
        <source>Update channel</source>
        <translation>Canal de mise à jour</translation>
    </message>
    <message>
        <source>Stable</source>
        <translation>Stable</translation>
    </message>
    <message>
        <source>Version</source>
        <translation>Version</translation>
    </message>
    <message>
        <source>&amp;Help</source>
        <translation>Ai&amp;de</translation>
    </message>
    <message>
        <source>Open the online help</source>
        <translation>Ouvrir l’aide en ligne</translation>
    </message>
    <message>
        <source>Runs the ZELNA Quorin service now and at every login; turned off, the service is stopped the next time this program starts</source>
        <translation>Exécute le service ZELNA Quorin maintenant et à chaque connexion&#xa0;; une fois désactivé, le service est arrêté au prochain démarrage de ce programme</translation>
    </message>
    <message>
        <source>Shows whether the service starts at login; it follows Enable</source>
        <translation>Indique si le service démarre à la connexion&#xa0;; suit «&#xa0;Activer&#xa0;»</translation>
    </message>
    <message>
        <source>Tells the file manager not to show previews of cloud files</source>
        <translation>Demande au gestionnaire de fichiers de ne pas afficher d’aperçus des fichiers du cloud</translation>
    </message>
    <message>
        <source>The update channel this program follows</source>
        <translation>Le canal de mise à jour que suit ce programme</translation>
    </message>
    <message>
        <source>Opens the online help in the web browser</source>
        <translation>Ouvre l’aide en ligne dans le navigateur web</translation>
    </message>
</context>
<context>
    <name>SUUpdateAlert</name>
    <message>
        <source>Software Update</source>
        <translation>Mise à jour du logiciel</translation>
    </message>
    <message>
        <source>A new version of %1 is available!</source>
        <translation>Une nouvelle version de %1 est disponible&#xa0;!</translation>
    </message>
    <message>
        <source>%1 %2 is now available—you have %3. Would you like to download it now?</source>
        <translation>%1 %2 est maintenant disponible (vous avez la version %3). Voulez-vous la télécharger maintenant&#xa0;?</translation>
    </message>
    <message>
        <source>Release notes</source>
        <translation>Notes de version</translation>
    </message>
    <message>
        <source>&amp;Release Notes:</source>
        <translation>&amp;Notes de version&#xa0;:</translation>
    </message>
    <message>
        <source>What changed in this version</source>
        <translation>Ce qui a changé dans cette version</translation>
    </message>
    <message>
        <source>&amp;Skip This Version</source>
        <translation>&amp;Ignorer cette version</translation>
    </message>
    <message>
        <source>Remind Me &amp;Later</source>
        <translation>Me le rappeler p&amp;lus tard</translation>
    </message>
    <message>
        <source>&amp;Download</source>
        <translation>&amp;Télécharger</translation>
    </message>
    <message>
        <source>Do not offer this version again</source>
        <translation>Ne plus proposer cette version</translation>
    </message>
    <message>
        <source>Close this window; a later check offers the version again</source>
        <translation>Ferme cette fenêtre&#xa0;; une vérification ultérieure proposera de nouveau cette version</translation>
    </message>
    <message>
        <source>Open the download page in the web browser</source>
        <translation>Ouvre la page de téléchargement dans le navigateur web</translation>
    </message>
    <message>
        <source>The release notes could not be loaded.</source>
        <translation>Les notes de version n’ont pas pu être chargées.</translation>
    </message>
    <message>
        <source>Loading the release notes…</source>
        <translation>Chargement des notes de version…</translation>
    </message>
</context>
<context>
    <name>ViewController</name>
    <message>
        <source>Make sure ZELNA Quorin is allowed under: System Settings &gt; Privacy &amp; Security &gt; Extensions &gt; Added extensions &gt; ZELNA Quorin Service.</source>
        <translation>Assurez-vous que ZELNA Quorin est autorisé dans&#xa0;: Réglages Système &gt; Confidentialité et sécurité &gt; Extensions &gt; Extensions ajoutées &gt; ZELNA Quorin Service.</translation>
    </message>
    <message>
        <source>Make sure ZELNA Quorin is allowed under: System Preferences &gt; Extensions &gt;&#xa0; Finder Extensions &gt; MacQuorinFinder.</source>
        <translation>Assurez-vous que ZELNA Quorin est autorisé dans&#xa0;: Préférences Système &gt; Extensions &gt; Extensions du Finder &gt; MacQuorinFinder.</translation>
    </message>
    <message>
        <source>Version: </source>
        <translation>Version&#xa0;: </translation>
    </message>
</context>
<context>
    <name>ZLFileManager</name>
    <message>
        <source>no permission to folders</source>
        <extracomment>When a user do not have premission to one or more folders</extracomment>
        <translation>aucune autorisation d’accès aux dossiers</translation>
    </message>
</context>
</TS>
