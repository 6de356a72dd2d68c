#pragma once

#ifdef ORVI_BENCH_ASIO
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#endif
#ifdef ORVI_BENCH_QT
#include <QCoreApplication>
#include <QThread>
#endif

#include <thread>
#include <utility>

// Loops of the peers, each on a thread of its own, which rests until a closure is posted.

#ifdef ORVI_BENCH_ASIO
class AsioLoop {
public:
    AsioLoop()
        : _work(_context.get_executor())
        , _thread([this] { _context.run(); })
    {}
    ~AsioLoop()
    {
        _work.reset();
        _thread.join();
    }
    template <class Closure>
    void post(Closure&& closure)
    {
        boost::asio::post(_context, std::forward<Closure>(closure));
    }

private:
    boost::asio::io_context _context;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> _work;
    std::thread _thread;
};
#endif

#ifdef ORVI_BENCH_QT
class QtLoop {
public:
    QtLoop()
    {
        static int argumentCount = 1;
        static char name[] = "bench";
        static char* arguments[] = {name, nullptr};
        static const QCoreApplication application(argumentCount, arguments); // event loops want one
        _object.moveToThread(&_thread);
        _thread.start();
    }
    ~QtLoop()
    {
        _thread.quit();
        _thread.wait();
    }
    template <class Closure>
    void post(Closure&& closure)
    {
        QMetaObject::invokeMethod(&_object, std::forward<Closure>(closure), Qt::QueuedConnection);
    }

private:
    QObject _object;
    QThread _thread;
};
#endif
