#include "FileManager.h"
#include "RecordingLogSink.h"
#include "Testing.h"
#include "ZLFileManager.h"

#include <sys/xattr.h>

using Result = ZLFileManager::ZLFileResult;

static const QString commPath = u"/com.zelna.Quorin.shared/Communication/commnuication_file.json"_s;

// What a shell script printed; nothing when one of its commands failed.
static std::optional<QByteArray> sh(const QString& script, const QStringList& arguments = {})
{
    QProcess shell;
    shell.start(u"sh"_s, QStringList{u"-ec"_s, script, u"sh"_s} + arguments);
    return shell.waitForFinished(60000) && shell.exitStatus() == QProcess::NormalExit && shell.exitCode() == 0
               ? std::optional(shell.readAllStandardOutput())
               : std::nullopt;
}

class TestFiles : public QObject {
    Q_OBJECT
    std::shared_ptr<RecordingLogSink> m_sink = RecordingLogSink::install();
    std::unique_ptr<TempHome> m_home;
    QList<QUrl> m_files;
    QStringList m_completions; // the error of each call

    QString path(const QString& relative) const { return m_home->path() + u'/' + relative; }
    QString commFile() const { return m_home->dataHome() + commPath; }
    // Nothing when the log holds one line per non-empty fragment, in order, no download line; else the log.
    QString unlike(QStringList fragments) const
    {
        fragments.removeAll(QString());
        const QStringList lines = m_sink->lines();
        for (qsizetype i = 0; i < std::max(lines.size(), fragments.size()); ++i)
            if (!lines.value(i).contains(fragments.value(i, u"\n"_s))
                || lines.value(i).contains(u"ZL_DOWNLOAD_LOG"_s))
                return lines.join(u'\n') + u"\nexpected: "_s + fragments.join(u", "_s);
        return {};
    }

public Q_SLOTS:
    void aggregated(const QList<QUrl>& files, const QVariantMap& error)
    {
        m_files = files;
        m_completions << QVariant(error.values()).toStringList().join(u'|'); // code, domain, description
        QVERIFY(QThread::currentThread() == QCoreApplication::instance()->thread());
    }

private Q_SLOTS:
    void init()
    {
        m_home = std::make_unique<TempHome>();
        m_home->applyToProcess();
        QDir::setCurrent(m_home->path());
        m_sink->clear();
        m_completions.clear();
    }

    void previewWriting()
    {
        // Its folders made parent first; an empty folder in the file's place is replaced.
        ZLFileManager manager;
        QVERIFY(manager.communicationFileURL() && QDir().mkdir(commFile()));
        manager.setPreviewStateEnabled(false);
        manager.setPreviewStateEnabled(std::nullopt); // refused, logged, left as it was
        const int input = ::dup(STDIN_FILENO); // there may be no standard input: 0 is closed like any other
        ::close(STDIN_FILENO);
        QCOMPARE(manager.previewStateEnabled(), std::optional(false));
        QCOMPARE(::dup(input), STDIN_FILENO); // standard input back where it was
        QCOMPARE(unlike({u"\"Error writing previewState value\". <Service>, ZLFileManag ("_s}), QString());
        // A link planted at its name is never followed, here to a file not there yet.
        QVERIFY(QFile::remove(commFile()) && QFile::link(path(u"planted"_s), commFile()));
        manager.setPreviewStateEnabled(true);
        QVERIFY(!QFileInfo::exists(path(u"planted"_s)));
    }

    void previewReading_data()
    {
        QTest::addColumn<QByteArray>("content"); // or "!" and a script, given the file
        QTest::addColumn<std::optional<bool>>("expected");
        QTest::addColumn<QString>("logged");
        const std::optional<bool> none;
        QTest::newRow("no file") << QByteArray("!") << none << u"Code=2 "_s;
        QTest::newRow("string") << QByteArray(R"({"previewEnabled":"true"})") << none << u"Code=4864 "_s;
        QTest::newRow("empty file") << QByteArray("") << none << u"Code=4864 "_s;
        QTest::newRow("key case") << QByteArray(R"({"PreviewEnabled":true})") << none << u"Code=4865 "_s;
        QTest::newRow("extra members, spaced")
            << QByteArray("{ \"o\": 5, \"previewEnabled\" : true }\n") << std::optional(true) << QString();
        // Any program of the user can put these there: no hang, no memory filled.
        QTest::newRow("a pipe nobody writes") << QByteArray("!mkfifo \"$1\"") << none << u"Code=263 "_s;
        QTest::newRow("a huge file") << QByteArray("!truncate -s $2 \"$1\"") << none << u"Code=263 "_s;
    }
    void previewReading()
    {
        QFETCH(QByteArray, content);
        QFETCH(std::optional<bool>, expected);
        QFETCH(QString, logged);
        ZLFileManager manager;
        const QStringList arguments{commFile(), QString::number(FileManager::maxContentsSize + 1)};
        QVERIFY(manager.communicationFileURL()
                && (content.startsWith('!') ? bool(sh(QString::fromUtf8(content.mid(1)), arguments))
                                            : TempHome::writeFile(commFile(), content)));
        QCOMPARE(manager.previewStateEnabled(), expected);
        QCOMPARE(unlike({logged}), QString());
    }

    // The stub attribute marks a file when it holds the five ASCII bytes "ZELNA", a sixth byte unread.
    void classification()
    {
        const QList<std::tuple<QString, QByteArray, Result>> files{
            {u"five"_s, "stub ZELNA", Result::stubFile}, {u"sixth"_s, "stub ZELNAx", Result::stubFile},
            {u"seven"_s, "stub ZELNAxy", Result::file},  {u"shorter"_s, "stub ZELN", Result::file},
            {u"share"_s, "share ZELNA", Result::file},   {u"link"_s, {}, Result::stubFile},
            {u"none"_s, {}, Result::notFound},           {u"."_s, {}, Result::directory}};
        QVERIFY(QFile::link(u"five"_s, u"link"_s));
        const auto manager = std::make_unique<ZLFileManager>();
        for (const auto& [name, attribute, expected] : files) {
            const qsizetype blank = attribute.indexOf(' ');
            const QByteArray key = "user.is.zelna." + attribute.left(blank), value = attribute.mid(blank + 1);
            if (!attribute.isEmpty() && TempHome::writeFile(name, "content")
                && setxattr(QFile::encodeName(name), key, value, size_t(value.size()), 0) != 0)
                QSKIP("this file system refuses user extended attributes");
            int kind = -1; // asked by name, as a runtime does
            QVERIFY(QMetaObject::invokeMethod(manager.get(), "isDirAt", Q_RETURN_ARG(int, kind),
                                              Q_ARG(QUrl, QUrl::fromLocalFile(path(name)))));
            QVERIFY2(Result(kind) == expected, qPrintable(name));
        }
    }

    void aggregation_data()
    {
        QTest::addColumn<QString>("tree");   // a script run in the home, the current folder
        QTest::addColumn<QString>("chosen"); // "~" stands for the home
        QTest::addColumn<QString>("logged"); // besides the start and the end; "permission" fails the call
        QTest::newRow("find's order, duplicates, missing")
            << u"mkdir -p t/s/d t/z t/0 0; touch file t/a t/s/b t/.c t/s/d/x t/z/y 't/%41 #?'"_s
            << u"~/file ~/t ~/0 ~/missing t ~/t/a t/a"_s << u"Error Domain=NSPOSIXErrorDomain Code=2 "_s;
        QTest::newRow("links listed unfollowed, special files unopened, names not UTF-8, paths over PATH_MAX")
            << u"mkdir -p s/f; touch s/f/in s/file; ln -s f s/lf; ln -s file s/lfile; ln -s none s/dangling; "
               u"mkfifo s/fifo; mknod s/null c 1 3 || touch s/null; python3 -c 'import socket; "
               u"socket.socket(socket.AF_UNIX).bind(\"s/socket\")'; cd s; N=$(printf 'n%.0s' $(seq 100)); "
               u"for i in $(seq 50); do mkdir $N; cd -P $N; done; touch \"$(printf 'caf\\351-\\377\\376.txt')\""_s
            << u"~/s ~/s/lf"_s << QString();
        // An unreadable chosen folder stops the call: what follows is not even looked at.
        QTest::newRow("unreadable chosen folder")
            << u"mkdir a b; touch a/1 b/2; chmod 0 b"_s << u"a b missing"_s << u"No read permission at ~/b"_s;
        QTest::newRow("unreadable folder inside")
            << u"mkdir -p a/b; touch a/1 a/b/2 a/3; chmod 0 a/b"_s << u"a"_s << QString();
    }
    void aggregation()
    {
        QFETCH(QString, tree);
        QFETCH(QString, chosen);
        QFETCH(QString, logged);
        if (tree.contains(u"chmod 0"_s) && ::geteuid() == 0) { // root reads every folder: ask another user
            QProcess child; // running a copy it can reach, wherever this checkout is
            TempHome::runAsNobody(child);
            // Not by name: in a chroot, this mount namespace no longer resolves our own path.
            QVERIFY(QFile::copy(u"/proc/self/exe"_s, path(u"tst_files"_s))
                    && TempHome::letOthersThrough(m_home->path()));
            child.start(path(u"tst_files"_s),
                        {u"aggregation:"_s + QLatin1StringView(QTest::currentDataTag())});
            QVERIFY2(child.waitForFinished(60000) && child.exitCode() == 0, child.readAll().constData());
            return;
        }
        QVERIFY(sh(tree));
        const bool error = logged.contains(u"permission"_s);
        const QStringList paths = chosen.replace(u'~', m_home->path()).split(u' ', Qt::SkipEmptyParts);
        // GNU find's listing: depth first, directory order, folders left out; other paths as chosen.
        const auto found
            = sh(u"for p; do case $p in /*) ;; *) p=$PWD/$p; esac; if [ -e \"$p\" ] || [ -L \"$p\" ]; "
                 u"then find \"$p\" ! -type d -print0 || true; else printf '%s\\0' \"$p\"; fi; done"_s,
                 paths);
        QList<QUrl> want;
        for (const QByteArray& file : found.value_or(QByteArray()).split('\0'))
            if (!file.isEmpty() && !error)
                want << QUrl::fromEncoded("file://" + file.toPercentEncoding("/"));
        // Made and called by name only, as the file-manager extension's runtime does.
        const std::unique_ptr<QObject> manager(
            QMetaType::fromName("ZELNA_Quorin.ZLFileManager").metaObject()->newInstance());
        QVERIFY(QMetaObject::invokeMethod(manager.get(), "fileAggregationFrom", Q_ARG(QStringList, paths),
                                          Q_ARG(QObject*, this), Q_ARG(QByteArray, "aggregated")));
        QTRY_COMPARE_WITH_TIMEOUT(m_completions.size(), 1, 60000);
        sh(u"rm -rf s; chmod -R u+rwx ."_s); // too deep for QDir
        QCOMPARE(m_completions, QStringList(error ? u"0|com.zelna|no permission to folders"_s : QString()));
        QCOMPARE(m_files, want);
        QCOMPARE(unlike({u"\"Mapping paths -> URLs...\". <Service>, ZLFileManag ("_s, u"URLs completed.\""_s,
                         logged.replace(u'~', m_home->path())}),
                 QString());
    }
};

QTEST_GUILESS_MAIN(TestFiles)
#include "tst_files.moc"
