#pragma once

// Creates the one instance of T, with no parent.
template <typename T>
struct SingletonFactory
{
    static T *create() { return new T(); }
};

// Process-wide instance created on first use. The first call happens on the main thread during
// start-up, so creation needs no lock. The instance lives until the process ends.
template <typename T, typename Factory = SingletonFactory<T>>
class Singleton
{
public:
    static T *instance()
    {
        static T *object = Factory::create();
        return object;
    }

    Singleton() = delete;
};
